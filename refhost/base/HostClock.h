#pragma once

#include <cstdint>

#include "refhost/base/Times.h"
#include "refhost/base/WallClock.h"

namespace refhost
{

/// The machine's two clocks. A test brings its own.
///
/// Threads: any.
class HostClock
{
public:
    virtual ~HostClock() = default;

    /// Now on the clock that is never set; capture times of live media are read from it.
    virtual MonotonicTime now() const = 0;
    /// The system's wall clock as it is set just now. Dates of media come from wall().
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

    /// How instants of the monotonic clock are dated.
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
