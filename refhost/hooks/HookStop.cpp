#include "refhost/hooks/HookStop.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <system_error>

namespace refhost
{

HookStop::HookStop() : event_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
{
    if (!event_)
    {
        throw std::system_error(errno, std::generic_category(), "eventfd");
    }
}

void HookStop::stop()
{
    const std::uint64_t one = 1;
    (void)!::write(event_.get(), &one, sizeof one);
}

bool HookStop::isStopped() const
{
    pollfd waited{event_.get(), POLLIN, 0};
    return ::poll(&waited, 1, 0) > 0;
}

int HookStop::millisecondsTo(Clock::time_point deadline)
{
    constexpr std::int64_t longest = 3'600'000;
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
    return static_cast<int>(std::clamp<std::int64_t>(left, 0, longest));
}

}  // namespace refhost
