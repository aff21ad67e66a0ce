#include "refhost/base/HostClock.h"

#include <chrono>

namespace refhost
{
namespace
{

class SystemClock : public HostClock
{
public:
    MonotonicTime now() const override
    {
        return MonotonicTime(std::chrono::steady_clock::now().time_since_epoch());
    }

    WallTime wallNow() const override
    {
        return WallTime(std::chrono::system_clock::now().time_since_epoch());
    }
};

}  // namespace

const HostClock& HostClock::system()
{
    // Never destroyed: threads may read it until the end of the process.
    static const auto* const clock = new SystemClock;
    return *clock;
}

}  // namespace refhost
