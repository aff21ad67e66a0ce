#pragma once

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
