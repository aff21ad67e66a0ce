#pragma once

#include <openssl/ssl.h>

#include <cstddef>
#include <memory>
#include <string>

#include "refhost/net/tls/TlsContext.h"

namespace refhost
{
namespace test
{

/// The server's side of a test: a self-signed certificate, made once for the program.
TlsContext::Server tlsServerOptions();
std::unique_ptr<TlsContext> makeTlsServer(const TlsContext::Server& options = tlsServerOptions());

/// A TLS client over a blocking socket with OpenSSL alone. The test sees the bytes that travel.
class TlsPeer
{
public:
    struct Options
    {
        int version = 0;                  ///< TLS1_2_VERSION, TLS1_3_VERSION or any
        std::size_t bytesAtOnce = 65536;  ///< that travel to the server
        SSL_SESSION* session = nullptr;   ///< to resume; the caller's
        std::string certificate;          ///< with its key; empty: none
        std::string key;
        SSL_CTX* context = nullptr;  ///< used instead of a new one; the caller's
    };

    /// \param socket  not owned
    TlsPeer(int socket, const Options& options);
    explicit TlsPeer(int socket) : TlsPeer(socket, Options()) {}
    ~TlsPeer();
    TlsPeer(const TlsPeer&) = delete;
    TlsPeer& operator=(const TlsPeer&) = delete;

    /// \returns false when the handshake failed
    bool connect();
    void write(const std::string& bytes);
    /// Records as the client would send them, not sent.
    std::string encrypted(const std::string& bytes);
    /// What came; empty at the end, \see ended().
    std::string read();
    /// close_notify came.
    bool ended() const;
    /// TCP ended without it, or nothing came for long.
    bool broken() const;
    void endWriting();

    /// Sends bytes that are no TLS of this client's.
    void sendRaw(const std::string& bytes);
    SSL* ssl() const;

private:
    void sendOut();
    bool receive();

    const int socket_;
    const std::size_t bytesAtOnce_;
    std::shared_ptr<SSL_CTX> context_;
    std::shared_ptr<SSL> ssl_;
    bool ended_ = false;
    bool broken_ = false;
};

}  // namespace test
}  // namespace refhost
