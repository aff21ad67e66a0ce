#include "refhost/rtsp/connection/TlsAcceptor.h"

#include <algorithm>
#include <utility>

#include "refhost/base/AuditLog.h"
#include "refhost/net/tls/SelfSignedCertificate.h"
#include "refhost/net/tls/TlsStream.h"

namespace refhost
{
namespace
{

/// One of the handshakes under way, while it lives.
class Handshake
{
public:
    Handshake(std::shared_ptr<AddressLimiter> all, const SocketAddress::Key& address)
        : all_(std::move(all)), address_(address)
    {
    }
    ~Handshake()
    {
        all_->giveBack(address_);
    }
    Handshake(const Handshake&) = delete;
    Handshake& operator=(const Handshake&) = delete;

private:
    const std::shared_ptr<AddressLimiter> all_;
    const SocketAddress::Key address_;
};

}  // namespace

std::unique_ptr<TlsAcceptor> TlsAcceptor::open(const TlsConfig& config, std::string& error)
{
    TlsContext::Server options;
    options.certificate = config.certificate;
    options.key = config.key;
    options.minVersion = config.minVersion;
    options.ciphers = config.ciphers;
    options.clientCa = config.clientCa;
    options.kernelTls = config.kernelTls;
    if (config.selfSigned)
    {
        SelfSignedCertificate pair;
        if (!pair.prepare(config.directory, error))
        {
            error.insert(0, "tls: ");
            return nullptr;
        }
        options.certificate = pair.certificate();
        options.key = pair.key();
    }
    auto context = TlsContext::forServer(options, error);
    if (context == nullptr)
    {
        error.insert(0, "tls: ");
        return nullptr;
    }
    return std::unique_ptr<TlsAcceptor>(new TlsAcceptor(std::move(context), config.handshakes));
}

TlsAcceptor::TlsAcceptor(std::unique_ptr<TlsContext> context, int handshakes)
    : context_(std::move(context)),
      handshakes_(std::make_shared<AddressLimiter>(handshakes, std::max(handshakes / 2, 1)))
{
}

std::shared_ptr<ByteStream> TlsAcceptor::accept(Descriptor socket, const SocketAddress& peer)
{
    if (!handshakes_->take(peer.key()))
    {
        AuditLog::connectionRefused(peer, "handshakes");
        return nullptr;
    }
    auto handshake = std::make_shared<Handshake>(handshakes_, peer.key());
    return std::make_shared<TlsStream>(std::move(socket), peer, *context_, std::move(handshake));
}

void TlsAcceptor::refresh()
{
    context_->refresh();
}

std::string TlsAcceptor::fingerprint() const
{
    return context_->fingerprint();
}

}  // namespace refhost
