#include "refhost/rtsp/connection/RtspServer.h"

#include <fcntl.h>
#include <netdb.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <exception>
#include <thread>
#include <utility>

#include "refhost/base/ChangeSignal.h"
#include "refhost/base/Log.h"
#include "refhost/net/TcpLiveness.h"
#include "refhost/net/TcpStream.h"

namespace refhost
{
namespace
{

constexpr int backlog = 4096;
constexpr int acceptedAtOnce = 64;
// Concurrent connections beyond the limits that are answered 503; more are closed without a response.
constexpr int refusedAtOnce = 64;
// The system's buffer per direction of a connection without interleaved frames, so that nobody can make it
// hold megabytes. Interleaved frames get a larger send buffer.
constexpr int sendBufferSize = 32 * 1024;
constexpr int receiveBufferSize = 32 * 1024;

void setOption(int descriptor, int level, int name, int value)
{
    if (::setsockopt(descriptor, level, name, &value, sizeof value) != 0)
    {
        Log::debug("setsockopt {}/{}: {}", level, name, std::strerror(errno));
    }
}

MulticastServer::Options multicastOptions(const ServerConfig& config)
{
    MulticastServer::Options options;
    options.pool.range = MulticastRange::parse(config.multicast.pool).value_or(MulticastRange());
    options.pool.port = config.multicast.port;
    options.nameOf = [config](MulticastPool::Stream stream)
    { return config.streamName(stream.first, stream.second); };
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

Descriptor openSpare()
{
    return Descriptor(::open("/dev/null", O_RDONLY | O_CLOEXEC));
}

}  // namespace

RtspServer::RtspServer(const ServerConfig& config, MediaRoutes routes)
    : RtspServer(config, std::move(routes), Options())
{
}

RtspServer::RtspServer(const ServerConfig& config, MediaRoutes routes, Options options)
    : config_(config),
      options_(std::move(options)),
      services_(config_, std::move(routes), options_.clock),
      slots_(config_.limits.connections, config_.limits.connectionsPerAddress),
      refused_(refusedAtOnce, refusedAtOnce)
{
}

RtspServer::~RtspServer()
{
    stop();
}

bool RtspServer::start(std::string& error)
{
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
        services_.multicast = MulticastServer::open(multicastOptions(config_), error);
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
    addrinfo hints{};
    hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV | AI_PASSIVE;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    const std::string service = std::to_string(config_.port);
    if (::getaddrinfo(config_.listen.c_str(), service.c_str(), &hints, &found) != 0)
    {
        error = "\"" + config_.listen + "\" is no numeric address";
        return false;
    }
    const std::unique_ptr<addrinfo, decltype(&::freeaddrinfo)> address(found, &::freeaddrinfo);
    listener_ = Descriptor(::socket(address->ai_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (!listener_)
    {
        error = std::string("no socket: ") + std::strerror(errno);
        return false;
    }
    setOption(listener_.get(), SOL_SOCKET, SO_REUSEADDR, 1);
    // Accepted sockets inherit these from the listener, without system calls.
    setOption(listener_.get(), IPPROTO_TCP, TCP_NODELAY, 1);
    setOption(listener_.get(), SOL_SOCKET, SO_SNDBUF, sendBufferSize);
    setOption(listener_.get(), SOL_SOCKET, SO_RCVBUF, receiveBufferSize);
    TcpLiveness::configure(listener_.get(), std::chrono::seconds(config_.limits.sessionTimeout));
    if (::bind(listener_.get(), address->ai_addr, address->ai_addrlen) != 0 ||
        ::listen(listener_.get(), backlog) != 0)
    {
        error = "cannot listen on " + config_.listen + " port " + service + ": " + std::strerror(errno);
        return false;
    }
    port_ = SocketAddress::localOf(listener_.get()).port();
    spare_ = openSpare();
    return true;
}

void RtspServer::startLoops()
{
    for (int i = 0; i < config_.loopCount(); ++i)
    {
        loops_.push_back(std::make_unique<ConnectionLoop>("rtsp-" + std::to_string(i), services_, refused_,
                                                          options_.sweepInterval));
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
    first.every(options_.sweepInterval, [this] { services_.sessions.endExpired(services_.now()); });
    first.add(listener_.get(), EventLoop::readable, [this](std::uint32_t) { acceptAll(); });
}

void RtspServer::stop()
{
    if (!loops_.empty())
    {
        loops_.front()->events().remove(listener_.get());
    }
    closeListener();
    if (std::exchange(subscribed_, false))
    {
        ChangeSignal::instance().unsubscribe(subscription_);
    }
    for (const auto& loop : loops_)
    {
        loop->closeAll();
    }
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
    port_ = 0;
}

void RtspServer::closeListener()
{
    listener_.reset();
    spare_.reset();
}

void RtspServer::acceptAll()
{
    for (int i = 0; i < acceptedAtOnce; ++i)
    {
        if (!acceptOne())
        {
            return;
        }
    }
}

/// \returns false when no connection waits
bool RtspServer::acceptOne()
{
    sockaddr_storage address{};
    socklen_t size = sizeof address;
    Descriptor socket(::accept4(listener_.get(), reinterpret_cast<sockaddr*>(&address), &size,
                                SOCK_NONBLOCK | SOCK_CLOEXEC));
    if (!socket)
    {
        if (errno == EMFILE || errno == ENFILE)
        {
            shedOne();
        }
        // Any other failure concerns that connection only.
        return errno != EAGAIN && errno != EWOULDBLOCK && errno != EMFILE && errno != ENFILE &&
               errno != ENOBUFS && errno != ENOMEM;
    }
    const SocketAddress peer(reinterpret_cast<const sockaddr*>(&address));
    std::shared_ptr<ConnectionSlots::Slot> slot = slots_.take(peer.key(), services_.now());
    if (slot == nullptr)
    {
        Log::limited(Log::Level::warning, "connections refused",
                     "{}: connection refused: too many, or too many of its address", peer.text());
    }
    if (slot == nullptr && !refused_.take(peer.key()))
    {
        return true;
    }
    loops_[nextLoop_++ % loops_.size()]->adopt(std::make_shared<TcpStream>(std::move(socket), peer),
                                               std::move(slot));
    return true;
}

/// Without a free descriptor the waiting connection would keep the listener readable.
void RtspServer::shedOne()
{
    const int reason = errno;
    if (spare_)
    {
        spare_.reset();
        const Descriptor refused(::accept4(listener_.get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
    }
    spare_ = openSpare();
    Log::limited(Log::Level::warning, "connections without a descriptor", "connection refused: {}",
                 std::strerror(reason));
    errno = reason;
}

int RtspServer::port() const
{
    return port_;
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
