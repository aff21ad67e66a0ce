#include "refhost/base/HostClock.h"

#include <chrono>

namespace refhost
{
namespace
{

class SystemClock : public HostClock
{
public:
    std::int64_t wallNs() const override
    {
        const auto now = std::chrono::system_clock::now().time_since_epoch();
        return std::chrono::duration_cast<std::chrono::nanoseconds>(now).count();
    }

    std::int64_t monotonicMs() const override
    {
        return monotonicNs() / 1'000'000;
    }

    std::int64_t monotonicNs() const override
    {
        const auto now = std::chrono::steady_clock::now().time_since_epoch();
        return std::chrono::duration_cast<std::chrono::nanoseconds>(now).count();
    }
};

}  // namespace

const HostClock& HostClock::system()
{
    // Never destroyed: threads of services that are not destroyed either read it until the very end of the
    // process.
    static const auto* const clock = new SystemClock;
    return *clock;
}

}  // namespace refhost
