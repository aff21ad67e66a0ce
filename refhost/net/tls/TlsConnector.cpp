#include "refhost/net/tls/TlsConnector.h"

#include <fmt/format.h>

#include <chrono>
#include <system_error>
#include <utility>

#include "refhost/base/Log.h"
#include "refhost/net/ConnectFailure.h"
#include "refhost/net/TcpConnector.h"
#include "refhost/net/tls/CertificateFingerprint.h"
#include "refhost/net/tls/TlsStream.h"

namespace refhost
{
namespace
{

using Clock = std::chrono::steady_clock;

/// \returns why the server's certificate is not trusted, its fingerprint first, because logs cut long lines; empty when
/// it is trusted
std::string distrustOf(TlsStream& stream, const TlsConnector::Trust& trust)
{
    const std::string fingerprint = stream.peerFingerprint();
    const bool pinned = !trust.fingerprint.empty();
    const std::string unverified = pinned || !trust.verify ? "" : stream.unverified();
    if (pinned ? CertificateFingerprint::same(fingerprint, trust.fingerprint) : unverified.empty())
    {
        return {};
    }
    return fmt::format("its certificate (SHA-256 {}) is not {}", fingerprint,
                       pinned ? "the pinned one" : "trusted: " + unverified);
}

class TlsAttempt final : public StreamConnector::Attempt
{
public:
    TlsAttempt(EventLoop& loop, std::string host, int port, std::shared_ptr<const TlsContext> context,
               TlsConnector::Trust trust, Clock::time_point deadline, StreamConnector::Connected connected)
        : loop_(loop),
          host_(std::move(host)),
          port_(port),
          context_(std::move(context)),
          trust_(std::move(trust)),
          deadline_(deadline),
          connected_(std::move(connected))
    {
    }
    ~TlsAttempt() override
    {
        loop_.cancel(timer_);
        if (stream_ != nullptr)
        {
            stream_->close();
        }
    }
    TlsAttempt(const TlsAttempt&) = delete;
    TlsAttempt& operator=(const TlsAttempt&) = delete;

    void start(HostResolver& resolver)
    {
        TcpConnector connector(resolver, [this](Descriptor socket, const SocketAddress& peer)
                               { return wrap(std::move(socket), peer); });
        tcp_ = connector.connect(loop_, host_, port_, deadline_ - Clock::now(),
                                 [this](std::unique_ptr<ByteStream> stream, const std::string& error)
                                 { onTcp(std::move(stream), error); });
    }

private:
    std::unique_ptr<ByteStream> wrap(Descriptor socket, const SocketAddress& peer)
    {
        return std::make_unique<TlsStream>(std::move(socket), peer, *context_, nullptr, host_);
    }

    void onTcp(std::unique_ptr<ByteStream> stream, const std::string& error)
    {
        if (stream == nullptr)
        {
            finish(nullptr, error);
            return;
        }
        stream_.reset(static_cast<TlsStream*>(stream.release()));  // of wrap()
        try
        {
            stream_->watchSend(true);
            stream_->attach(loop_, [this](std::uint32_t ready) { onReady(ready); });
        }
        catch (const std::system_error& failure)
        {
            fail(failure.what());
            return;
        }
        timer_ = loop_.after(deadline_ - Clock::now(), [this] { fail("the TLS handshake takes too long"); });
    }

    void onReady(std::uint32_t ready)
    {
        if ((ready & ByteStream::hungUp) != 0)
        {
            fail(fmt::format("the TLS handshake failed: {}", Log::safe(stream_->failure())));
            return;
        }
        if ((ready & ByteStream::sendable) == 0)
        {
            return;
        }
        const std::string distrust = distrustOf(*stream_, trust_);
        if (!distrust.empty())
        {
            fail(distrust);
            return;
        }
        stream_->watchSend(false);
        stream_->detach();
        finish(std::move(stream_), "");
    }

    void fail(const std::string& why)
    {
        stream_->close();
        finish(nullptr, ConnectFailure::text(host_, port_, why));
    }

    void finish(std::unique_ptr<ByteStream> stream, const std::string& error)
    {
        loop_.cancel(timer_);
        const StreamConnector::Connected connected = std::move(connected_);
        connected(std::move(stream), error);  // which may be the end of this attempt
    }

    EventLoop& loop_;
    const std::string host_;
    const int port_;
    const std::shared_ptr<const TlsContext> context_;
    const TlsConnector::Trust trust_;
    const Clock::time_point deadline_;
    StreamConnector::Connected connected_;
    std::unique_ptr<StreamConnector::Attempt> tcp_;
    std::unique_ptr<TlsStream> stream_;
    EventLoop::TimerId timer_;
};

}  // namespace

TlsConnector::TlsConnector(HostResolver& resolver, std::shared_ptr<const TlsContext> context, Trust trust)
    : resolver_(resolver), context_(std::move(context)), trust_(std::move(trust))
{
}

std::unique_ptr<StreamConnector::Attempt> TlsConnector::connect(EventLoop& loop, const std::string& host,
                                                                int port, Duration timeout,
                                                                Connected connected)
{
    auto attempt = std::make_unique<TlsAttempt>(loop, host, port, context_, trust_, Clock::now() + timeout,
                                                std::move(connected));
    attempt->start(resolver_);
    return attempt;
}

}  // namespace refhost
