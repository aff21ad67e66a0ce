#include "refhost/rtsp/connection/RtspServer.h"

#include <algorithm>
#include <exception>
#include <utility>

#include "refhost/base/AuditLog.h"
#include "refhost/base/ChangeSignal.h"
#include "refhost/base/Log.h"
#include "refhost/net/TcpStream.h"
#include "refhost/rtp/srtp/SrtpOpener.h"

namespace refhost
{
namespace
{

// Concurrent connections beyond the limits that are answered 503; more are closed without a response.
constexpr int refusedAtOnce = 64;

using Present = std::shared_ptr<Replaceable<ServerConfig>>;

MulticastServer::Options multicastOptions(const ServerConfig& config, const Present& present)
{
    MulticastServer::Options options;
    options.pool.range = MulticastRange::parse(config.multicast.pool).value_or(MulticastRange());
    options.pool.port = config.multicast.port;
    options.nameOf = [present](MulticastPool::Stream stream)
    { return present->get()->streamName(stream.first, stream.second); };
    for (const CameraConfig& camera : config.cameras)
    {
        for (const StreamConfig& stream : camera.streams)
        {
            if (const auto group = MulticastGroup::parse(stream.multicast))
            {
                options.pool.fixed[{camera.id, stream.id}] = *group;
            }
        }
    }
    options.ttl = config.multicast.ttl;
    options.interface = config.multicast.interface;
    options.listen = config.listen;
    options.segmentationOffload = config.segmentationOffload;
    return options;
}

bool supportsSuite(const ServerConfig& config, std::string& error)
{
    const SrtpSuite suite = ServerPolicy(config).srtpSuite;
    // The other suites are part of every build of the library.
    if (suite == SrtpSuite::aeadAes128Gcm && !SrtpOpener::supports(suite))
    {
        error = "this system's libsrtp2 has no " + config.srtp.suite + ": choose another suite in [srtp]";
        return false;
    }
    return true;
}

}  // namespace

RtspServer::RtspServer(const ServerConfig& config, MediaRoutes routes)
    : RtspServer(config, std::move(routes), Options())
{
}

RtspServer::RtspServer(const ServerConfig& config, MediaRoutes routes, Options options)
    : config_(config),
      present_(std::make_shared<Replaceable<ServerConfig>>(config)),
      options_(options),
      services_(config_, std::move(routes), *options_.clock),
      slots_(config_.limits.connections, config_.limits.connectionsPerAddress),
      refused_(refusedAtOnce, refusedAtOnce),
      http_(config_)
{
}

RtspServer::~RtspServer()
{
    stop();
}

bool RtspServer::start(std::string& error)
{
    if (!supportsSuite(config_, error))
    {
        return false;
    }
    UdpServer::Options udp;
    udp.address = config_.listen;
    udp.rtpPort = config_.rtpPort;
    udp.segmentationOffload = config_.segmentationOffload;
    services_.udp = UdpServer::open(udp, error);
    if (services_.udp == nullptr)
    {
        return false;
    }
    if (services_.routes.multicast())
    {
        services_.multicast = MulticastServer::open(multicastOptions(config_, present_), error);
    }
    if ((services_.routes.multicast() && services_.multicast == nullptr) || !listen(error))
    {
        stop();
        return false;
    }
    try
    {
        startLoops();
    }
    catch (const std::exception& failure)
    {
        error = failure.what();
        stop();
        return false;
    }
    return true;
}

bool RtspServer::listen(std::string& error)
{
    plain_ = listenerFor("rtsp", config_.listen, config_.port, error);
    const MutexLock guard(tlsMutex_);
    return plain_ != nullptr && (!config_.tls.enabled() || openTls(config_, tls_, encrypted_, error));
}

bool RtspServer::openTls(const ServerConfig& config, std::shared_ptr<TlsAcceptor>& acceptor,
                         std::unique_ptr<TcpListener>& listener, std::string& error) const
{
    const std::string& address = config.tls.listen.empty() ? config_.listen : config.tls.listen;
    acceptor = TlsAcceptor::open(config.tls, error);
    listener = acceptor == nullptr ? nullptr : listenerFor("rtsps", address, config.tls.port, error);
    return listener != nullptr;
}

std::shared_ptr<TlsAcceptor> RtspServer::tls() const
{
    const MutexLock guard(tlsMutex_);
    return tls_;
}

std::unique_ptr<TcpListener> RtspServer::listenerFor(const char* name, const std::string& address, int port,
                                                     std::string& error) const
{
    const std::chrono::seconds liveness(config_.limits.sessionTimeout);
    Descriptor passed = options_.sockets == nullptr ? Descriptor() : options_.sockets->take(name);
    return passed ? TcpListener::adopt(std::move(passed), liveness)
                  : TcpListener::open(address, port, liveness, error);
}

void RtspServer::startLoops()
{
    for (int i = 0; i < config_.loopCount(); ++i)
    {
        loops_.push_back(std::make_unique<ConnectionLoop>("rtsp-" + std::to_string(i), services_, refused_,
                                                          options_.sweepInterval, &http_));
    }
    subscription_ = ChangeSignal::instance().subscribe(
        [this]
        {
            for (const auto& loop : loops_)
            {
                loop->retryDeferred();
            }
        });
    subscribed_ = true;
    services_.sessions.reportUnaware(
        [this](std::uint64_t connection)
        {
            for (const auto& loop : loops_)
            {
                loop->endUnlessUsed(connection);
            }
        });
    EventLoop& first = loops_.front()->events();
    EventLoop& last = loops_.back()->events();
    UdpServer* const udp = services_.udp.get();
    last.add(udp->rtpDescriptor(), EventLoop::readable, [udp](std::uint32_t) { udp->onRtpReadable(); });
    last.add(udp->rtcpDescriptor(), EventLoop::readable, [udp](std::uint32_t) { udp->onRtcpReadable(); });
    if (MulticastServer* const multicast = services_.multicast.get())
    {
        last.add(multicast->descriptor(), EventLoop::readable,
                 [multicast](std::uint32_t) { multicast->onReadable(); });
    }
    first.every(options_.sweepInterval,
                [this]
                {
                    services_.sessions.endExpired(services_.now());
                    http_.endExpired(services_.now());
                });
    acceptFrom(*plain_, false);
    const MutexLock guard(tlsMutex_);
    if (encrypted_ != nullptr)
    {
        acceptFrom(*encrypted_, true);
    }
}

/// A loop that has nothing else to do accepts, and serves what it accepted.
void RtspServer::acceptFrom(TcpListener& listener, bool encrypted)
{
    for (const auto& loop : loops_)
    {
        ConnectionLoop& acceptor = *loop;
        acceptor.events().add(
            listener.descriptor(), EventLoop::readable | EventLoop::exclusive,
            [this, &listener, &acceptor, encrypted](std::uint32_t)
            {
                listener.acceptAll([this, &acceptor, encrypted](Descriptor socket, const SocketAddress& peer)
                                   { adopt(acceptor, std::move(socket), peer, encrypted); });
            });
    }
}

void RtspServer::closeListener(std::unique_ptr<TcpListener>& listener)
{
    for (const auto& loop : loops_)
    {
        if (listener != nullptr)
        {
            loop->events().remove(listener->descriptor());
        }
    }
    listener.reset();
}

/// Everything that can fail comes first.
bool RtspServer::setConfig(const ServerConfig& config, std::string& error)
{
    if (!supportsSuite(config, error))
    {
        return false;
    }
    const auto before = present_->get();
    const bool moved = before->tls.enabled() != config.tls.enabled() ||
                       before->tls.listen != config.tls.listen || before->tls.port != config.tls.port;
    const bool opens = config.tls.enabled() && !(before->tls == config.tls);
    std::shared_ptr<TlsAcceptor> acceptor = config.tls.enabled() ? tls() : nullptr;
    std::unique_ptr<TcpListener> listener;
    if (opens && !moved)
    {
        acceptor = TlsAcceptor::open(config.tls, error);
    }
    if (opens && (moved ? !openTls(config, acceptor, listener, error) : acceptor == nullptr))
    {
        return false;
    }
    present_->replace(config);
    services_.setPolicy(config);
    if (!(before->users == config.users && before->groups == config.groups))
    {
        services_.setUsers(config.users, config.groups);
    }
    slots_.setLimits(config.limits.connections, config.limits.connectionsPerAddress);
    http_.setConfig(config);
    {
        const MutexLock guard(tlsMutex_);
        tls_ = std::move(acceptor);
        if (moved)
        {
            encrypted_.swap(listener);
        }
    }
    // The former one, outside the lock: a handler that runs may want it.
    closeListener(listener);
    if (moved && config.tls.enabled())
    {
        const MutexLock guard(tlsMutex_);
        acceptFrom(*encrypted_, true);
    }
    return true;
}

std::size_t RtspServer::endSessions(const std::function<bool(int camera, int stream)>& which,
                                    const std::string& why)
{
    return services_.endStreams(which, why);
}

void RtspServer::stop()
{
    std::unique_ptr<TcpListener> encrypted;
    {
        const MutexLock guard(tlsMutex_);
        encrypted.swap(encrypted_);
    }
    closeListener(plain_);
    closeListener(encrypted);
    if (std::exchange(subscribed_, false))
    {
        ChangeSignal::instance().unsubscribe(subscription_);
    }
    services_.sessions.reportUnaware(nullptr);
    for (const auto& loop : loops_)
    {
        loop->closeAll();
    }
    http_.clear();
    services_.sessions.endAll();
    if (!loops_.empty())
    {
        loops_.back()->events().remove(services_.udp->rtpDescriptor());
        loops_.back()->events().remove(services_.udp->rtcpDescriptor());
        if (services_.multicast != nullptr)
        {
            loops_.back()->events().remove(services_.multicast->descriptor());
        }
    }
    loops_.clear();
    services_.udp.reset();
    services_.multicast.reset();
    const MutexLock guard(tlsMutex_);
    tls_.reset();
}

/// The loop that accepted a connection, unless it has far more of them than another: passing one on costs a
/// wake-up and memory that moves between processors.
ConnectionLoop& RtspServer::loopFor(ConnectionLoop& acceptor) const
{
    constexpr std::size_t maxLead = 32;
    const auto fewest = std::min_element(loops_.begin(), loops_.end(),
                                         [](const auto& one, const auto& other)
                                         { return one->connections() < other->connections(); });
    return acceptor.connections() > (*fewest)->connections() + maxLead ? **fewest : acceptor;
}

void RtspServer::adopt(ConnectionLoop& acceptor, Descriptor socket, const SocketAddress& peer, bool encrypted)
{
    std::shared_ptr<ConnectionSlots::Slot> slot = slots_.take(peer.key(), services_.now());
    if (slot == nullptr)
    {
        AuditLog::connectionRefused(peer, "connections");
    }
    if (slot == nullptr && !refused_.take(peer.key()))
    {
        return;
    }
    std::shared_ptr<ByteStream> stream;
    if (const auto handshakes = encrypted ? tls() : nullptr)
    {
        stream = handshakes->accept(std::move(socket), peer);
    }
    else if (!encrypted)
    {
        stream = std::make_shared<TcpStream>(std::move(socket), peer);
    }
    if (stream != nullptr)
    {
        loopFor(acceptor).adopt(std::move(stream), std::move(slot));
    }
    else if (slot == nullptr)
    {
        refused_.giveBack(peer.key());
    }
}

void RtspServer::refreshCertificate()
{
    if (const auto acceptor = tls())
    {
        acceptor->refresh();
    }
}

std::size_t RtspServer::setUsers(const std::vector<UserConfig>& users, const std::vector<GroupConfig>& groups)
{
    return services_.setUsers(users, groups);
}

RtspServices& RtspServer::services()
{
    return services_;
}

int RtspServer::port() const
{
    return plain_ == nullptr ? 0 : plain_->port();
}

int RtspServer::tlsPort() const
{
    const MutexLock guard(tlsMutex_);
    return encrypted_ == nullptr ? 0 : encrypted_->port();
}

std::string RtspServer::tlsFingerprint() const
{
    const auto acceptor = tls();
    return acceptor == nullptr ? "" : acceptor->fingerprint();
}

int RtspServer::rtpPort() const
{
    return services_.udp == nullptr ? 0 : services_.udp->rtpPort();
}

std::size_t RtspServer::connectionCount() const
{
    return slots_.count();
}

std::size_t RtspServer::sessionCount() const
{
    return services_.sessions.count();
}

}  // namespace refhost
