#include "bench/origin/OriginLoop.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>

namespace rtsporigin
{
namespace
{

constexpr int maxPauseMs = 100;
constexpr std::uint64_t listenerId = 0;

void check(int result, const char* what)
{
    if (result < 0)
    {
        throw std::system_error(errno, std::generic_category(), what);
    }
}

void setOption(int socket, int level, int option, int value)
{
    check(setsockopt(socket, level, option, &value, sizeof value), "setsockopt");
}

}  // namespace

OriginLoop::OriginLoop(int port, CannedMedia media, Clock::time_point epoch, int number)
    : media_(std::move(media)), epoch_(epoch), number_(number)
{
    check(epoll_ = epoll_create1(EPOLL_CLOEXEC), "epoll_create1");
    check(listener_ = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0), "socket");
    setOption(listener_, SOL_SOCKET, SO_REUSEADDR, 1);
    setOption(listener_, SOL_SOCKET, SO_REUSEPORT, 1);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    auto* const plain = reinterpret_cast<sockaddr*>(&address);
    socklen_t size = sizeof address;
    check(bind(listener_, plain, size), "bind");
    check(listen(listener_, SOMAXCONN), "listen");
    check(getsockname(listener_, plain, &size), "getsockname");
    port_ = ntohs(address.sin_port);
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.u64 = listenerId;
    check(epoll_ctl(epoll_, EPOLL_CTL_ADD, listener_, &event), "epoll_ctl");
}

OriginLoop::~OriginLoop()
{
    close(listener_);
    close(epoll_);
}

void OriginLoop::run()
{
    std::array<epoll_event, 256> events;
    while (!stopping_)
    {
        const int count = epoll_wait(epoll_, events.data(), static_cast<int>(events.size()), pause());
        for (int i = 0; i < count; ++i)
        {
            const epoll_event& event = events[static_cast<std::size_t>(i)];
            event.data.u64 == listenerId ? accept() : onEvent(event.data.u64, event.events);
        }
        sendDue();
    }
    while (!connections_.empty())
    {
        end(connections_.begin()->first);
    }
}

int OriginLoop::pause() const
{
    if (due_.empty())
    {
        return maxPauseMs;
    }
    // Rounded up: a frame may be up to a millisecond late, and what is due meanwhile goes with it.
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(due_.top().first - Clock::now());
    return static_cast<int>(std::clamp<std::int64_t>(left.count(), 0, maxPauseMs));
}

void OriginLoop::accept()
{
    while (true)
    {
        const int socket = accept4(listener_, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
        if (socket < 0)
        {
            return;
        }
        setOption(socket, IPPROTO_TCP, TCP_NODELAY, 1);
        const std::uint64_t id = ++lastId_;
        const std::uint64_t random = static_cast<std::uint64_t>(number_) << 32U | id;
        auto connection = std::make_unique<CameraConnection>(socket, media_, epoch_, random);
        watch(id, *connection, EPOLL_CTL_ADD);
        connections_.emplace(id, std::move(connection));
    }
}

void OriginLoop::watch(std::uint64_t id, const CameraConnection& connection, int operation)
{
    epoll_event event{};
    event.events = EPOLLIN | (connection.hasUnsent() ? EPOLLOUT : 0U);
    event.data.u64 = id;
    check(epoll_ctl(epoll_, operation, connection.descriptor(), &event), "epoll_ctl");
}

void OriginLoop::onEvent(std::uint64_t id, std::uint32_t events)
{
    const auto found = connections_.find(id);
    if (found == connections_.end())
    {
        return;
    }
    CameraConnection& connection = *found->second;
    const bool played = connection.plays();
    const bool waited = connection.hasUnsent();
    const bool good = ((events & EPOLLOUT) == 0 || connection.onWritable()) &&
                      ((events & ~EPOLLOUT) == 0 || connection.onReadable());
    if (!good)
    {
        return end(id);
    }
    if (connection.hasUnsent() != waited)
    {
        watch(id, connection, EPOLL_CTL_MOD);
    }
    if (connection.plays() && !played)
    {
        due_.emplace(connection.nextDue(), id);
        maxPlaying_ = std::max(maxPlaying_, due_.size());
    }
}

void OriginLoop::sendDue()
{
    const Clock::time_point now = Clock::now();
    while (!due_.empty() && due_.top().first <= now)
    {
        const std::uint64_t id = due_.top().second;
        due_.pop();
        const auto found = connections_.find(id);
        if (found == connections_.end())
        {
            continue;
        }
        CameraConnection& connection = *found->second;
        const bool waited = connection.hasUnsent();
        if (!connection.sendDue(now))
        {
            end(id);
            continue;
        }
        if (connection.hasUnsent() != waited)
        {
            watch(id, connection, EPOLL_CTL_MOD);
        }
        due_.emplace(connection.nextDue(), id);
    }
}

void OriginLoop::end(std::uint64_t id)
{
    const auto found = connections_.find(id);
    const SendCounts& counts = found->second->counts();
    counts_.units += counts.units;
    counts_.dropped += counts.dropped;
    counts_.late += counts.late;
    connections_.erase(found);
}

}  // namespace rtsporigin
