#pragma once
// Tested by tests/refhost/rtsp/connection/RtspServerTls_test.cpp.

#include <memory>
#include <string>

#include "refhost/base/Descriptor.h"
#include "refhost/base/SocketAddress.h"
#include "refhost/config/Config.h"
#include "refhost/net/ByteStream.h"
#include "refhost/net/tls/TlsContext.h"
#include "refhost/rtsp/session/AddressLimiter.h"

namespace refhost
{

/// The server's side of TLS: certificate and key as configured, and a limit of handshakes under way, of which
/// one address may have half. Threads: accept() any; the rest one at a time.
class TlsAcceptor
{
public:
    /// Loads the certificate and key, or makes self-signed ones.
    /// \param[out] error  one line, when null is returned
    static std::unique_ptr<TlsAcceptor> open(const TlsConfig& config, std::string& error);

    /// \param socket  connected; closed where null is returned
    /// \returns null, and logs it, when too many handshakes are under way
    std::shared_ptr<ByteStream> accept(Descriptor socket, const SocketAddress& peer);

    /// \see TlsContext::refresh()
    void refresh();
    std::string fingerprint() const;

private:
    TlsAcceptor(std::unique_ptr<TlsContext> context, int handshakes);

    const std::unique_ptr<TlsContext> context_;
    const std::shared_ptr<AddressLimiter> handshakes_;  // outlived by none of its handshakes
};

}  // namespace refhost
