#pragma once

#include <atomic>
#include <cstdint>
#include <optional>

#include "refhost/base/Mutex.h"
#include "refhost/base/Times.h"

namespace refhost
{

class HostClock;

/// The wall clock by which media are dated and times are reported: a mapping of the monotonic clock, which
/// goes on evenly, to the system's wall clock, which anybody may set at any time.
///
/// Everything that passes through the server is timed by the monotonic clock; this mapping is applied only
/// where a date leaves it. Small corrections of the system's clock are followed smoothly. A larger one is a
/// step: the mapping jumps, is counted and reported in the log, and whoever holds dates asks steps() to
/// notice it. A machine that was suspended sees a step forward, because the monotonic clock stood still.
///
/// Threads: any.
class WallClock
{
public:
    /// A correction from which on the clock was set rather than corrected, nanoseconds. Recordings that are
    /// closer to each other than this count as contiguous.
    static constexpr std::int64_t minStepNs = 200'000'000;
    /// How fast a smaller correction is followed: nanoseconds in a second.
    static constexpr std::int64_t slewNsPerSecond = 500'000;

    /// The mapping at one moment.
    struct Mapping
    {
        std::int64_t offsetNs = 0;    ///< wall clock less monotonic clock
        std::uint32_t steps = 0;      ///< how often the clock was set since the start
        std::uint32_t stepsBack = 0;  ///< how often of those it was set back

        /// The date of an instant of the monotonic clock: nanoseconds since 1970.
        std::int64_t at(std::int64_t monotonicNs) const
        {
            return monotonicNs + offsetNs;
        }

        /// The date of an instant.
        WallTime at(MonotonicTime instant) const
        {
            return WallTime(instant.time_since_epoch() + Duration(offsetNs));
        }
    };

    /// \param clock  outlives this
    explicit WallClock(const HostClock& clock) : clock_(clock) {}
    WallClock(const WallClock&) = delete;
    WallClock& operator=(const WallClock&) = delete;

    /// Follows the system's clock, at most some times a second, and returns the mapping that holds now.
    Mapping mapping();

    /// As Mapping::steps, without a look at the clocks: somebody else calls mapping() often enough.
    std::uint32_t steps() const
    {
        return steps_.load(std::memory_order_relaxed);
    }

private:
    /// One reading of both clocks.
    struct Reading
    {
        std::int64_t monotonicNs;
        std::int64_t offsetNs;
        std::int64_t uncertaintyNs;  ///< how much time passed while both were read
    };

    Reading read() const;
    std::int64_t follow(const Reading& reading) OV_REQUIRES(mutex_);

    const HostClock& clock_;
    Mutex mutex_;
    std::optional<std::int64_t> followedNs_
        OV_GUARDED_BY(mutex_);  ///< monotonic clock when the mapping last followed
    Mapping mapping_ OV_GUARDED_BY(mutex_);
    std::atomic<std::uint32_t> steps_{0};  ///< written under the lock
};

}  // namespace refhost
