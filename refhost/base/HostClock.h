#pragma once

#include <cstdint>

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

    /// The system's wall clock as it is just set, nanoseconds since 1970. Dates of media come from wall().
    virtual std::int64_t wallNs() const = 0;
    /// Milliseconds of a clock that is never set: it goes on evenly while the machine runs.
    virtual std::int64_t monotonicMs() const = 0;
    /// The same clock in nanoseconds, as fine as it is; the clock of AccessUnit::captureTimeNs.
    virtual std::int64_t monotonicNs() const
    {
        return monotonicMs() * 1'000'000;
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
