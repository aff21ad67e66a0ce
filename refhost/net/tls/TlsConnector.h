#pragma once
// Tested by tests/refhost/net/tls/TlsConnector_test.cpp.

#include <memory>
#include <string>

#include "refhost/net/HostResolver.h"
#include "refhost/net/StreamConnector.h"
#include "refhost/net/tls/TlsContext.h"

namespace refhost
{

/// Makes TLS connections: a TCP connection, then the handshake, step by step on the loop, and then the judgement of
/// the server's certificate. A connection whose certificate is not trusted is closed before anything is sent.
/// Threads: any.
class TlsConnector final : public StreamConnector
{
public:
    /// Which certificates are trusted.
    struct Trust
    {
        /// Those of a CA that the context knows which hold the host's name or address; false: every one.
        bool verify = true;
        /// SHA-256 of the one certificate that is trusted, in hexadecimal with or without colons; empty: `verify` holds.
        std::string fingerprint;
    };

    /// \param resolver  outlives the attempts
    /// \param context   of a client, with `verify` off: it is judged here
    TlsConnector(HostResolver& resolver, std::shared_ptr<const TlsContext> context, Trust trust);

    std::unique_ptr<Attempt> connect(EventLoop& loop, const std::string& host, int port, Duration timeout,
                                     Connected connected) override;

private:
    HostResolver& resolver_;
    const std::shared_ptr<const TlsContext> context_;
    const Trust trust_;
};

}  // namespace refhost
