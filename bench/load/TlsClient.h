#pragma once

#include <openssl/ssl.h>
#include <sys/types.h>

#include <cstddef>
#include <memory>
#include <string>

namespace rtspload
{

/// The client's side of TLS on a connected socket. Verifies nothing. Threads: one at a time.
class TlsClient
{
public:
    /// Does the handshake, and waits for it; the socket does not block afterwards.
    /// \param socket   stays the caller's
    /// \param session  to resume; may be null
    /// \returns false when it failed
    bool open(int socket, SSL_SESSION* session = nullptr);
    void close();

    /// All of it or nothing.
    bool send(const std::string& text);
    /// As recv(): everything that is there, as far as it fits.
    ssize_t receive(char* bytes, std::size_t size);

    SSL* ssl() const;

private:
    struct Free
    {
        void operator()(SSL* ssl) const
        {
            SSL_free(ssl);
        }
    };

    std::unique_ptr<SSL, Free> ssl_;
};

}  // namespace rtspload
