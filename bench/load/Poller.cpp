#include "bench/load/Poller.h"

#include <sys/epoll.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <system_error>

namespace rtspload
{

Poller::Poller() : epoll_(epoll_create1(EPOLL_CLOEXEC))
{
    if (epoll_ < 0)
    {
        throw std::system_error(errno, std::generic_category(), "epoll_create1");
    }
}

Poller::~Poller()
{
    close(epoll_);
}

void Poller::add(int descriptor, PollTarget& target)
{
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.ptr = &target;
    if (epoll_ctl(epoll_, EPOLL_CTL_ADD, descriptor, &event) != 0)
    {
        throw std::system_error(errno, std::generic_category(), "epoll_ctl");
    }
}

void Poller::wait(int milliseconds)
{
    std::array<epoll_event, 256> events;
    const int count = epoll_wait(epoll_, events.data(), static_cast<int>(events.size()), milliseconds);
    for (int i = 0; i < count; ++i)
    {
        static_cast<PollTarget*>(events[static_cast<std::size_t>(i)].data.ptr)->onReadable();
    }
}

std::int64_t nowNs()
{
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::nanoseconds>(now).count();
}

}  // namespace rtspload
