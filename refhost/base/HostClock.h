#pragma once

#include <cstdint>

#include "refhost/base/Times.h"
#include "refhost/base/WallClock.h"

namespace refhost
{

/// The machine's two clocks. Tests replace it.
///
/// Threads: any.
class HostClock
{
public:
    virtual ~HostClock() = default;

    /// Present time of the monotonic clock, which capture times of live media use.
    virtual MonotonicTime now() const = 0;
    /// The system's wall clock as it is set at present. Media are dated by wall() instead.
    virtual WallTime wallNow() const = 0;

    /// wallNow() in nanoseconds since 1970.
    std::int64_t wallNs() const
    {
        return wallNow().time_since_epoch().count();
    }
    /// now() in milliseconds.
    std::int64_t monotonicMs() const
    {
        return std::chrono::floor<std::chrono::milliseconds>(now().time_since_epoch()).count();
    }
    /// now() in nanoseconds.
    std::int64_t monotonicNs() const
    {
        return now().time_since_epoch().count();
    }

    /// The mapping from monotonic instants to dates.
    WallClock& wall() const
    {
        return wall_;
    }

    /// The system's clocks; valid until the process ends.
    static const HostClock& system();

private:
    mutable WallClock wall_{*this};
};

}  // namespace refhost
