#pragma once

#include <cstdint>

namespace refhost
{

/// The two clocks that dispatch reads. A test brings its own.
///
/// Threads: any.
class HostClock
{
public:
    virtual ~HostClock() = default;

    /// Wall clock, nanoseconds since 1970; the clock of AccessUnit::captureTimeNs.
    virtual std::int64_t wallNs() const = 0;
    /// Milliseconds of a clock that is never set back.
    virtual std::int64_t monotonicMs() const = 0;
    /// The same clock in nanoseconds, as fine as it is.
    virtual std::int64_t monotonicNs() const
    {
        return monotonicMs() * 1'000'000;
    }

    /// The system's clocks; valid until the process ends.
    static const HostClock& system();
};

}  // namespace refhost
