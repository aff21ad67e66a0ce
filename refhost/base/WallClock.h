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
/// runs at a constant rate, to the system's wall clock, which may be set at any time.
///
/// The server times everything by the monotonic clock and applies this mapping only where a date leaves it.
/// Small corrections of the system's clock are followed smoothly. A larger one is a step: the mapping jumps,
/// and the step is counted and logged; holders of dates detect it by steps(). After a suspend the machine
/// sees a step forward, because the monotonic clock stood still.
///
/// Threads: any.
class WallClock
{
public:
    /// The smallest correction that is a step. Recordings with a smaller gap between them count as contiguous.
    static constexpr Duration minStep = std::chrono::milliseconds(200);
    /// How far a smaller correction is followed in one second.
    static constexpr Duration slewPerSecond = std::chrono::microseconds(500);

    /// The mapping at one moment.
    struct Mapping
    {
        Duration offset{};            ///< wall clock minus monotonic clock
        std::uint32_t steps = 0;      ///< steps since the start
        std::uint32_t stepsBack = 0;  ///< steps backwards among them

        /// The date of an instant.
        WallTime at(MonotonicTime instant) const
        {
            return WallTime(instant.time_since_epoch() + offset);
        }
    };

    /// \param clock  outlives this
    explicit WallClock(const HostClock& clock) : clock_(clock) {}
    WallClock(const WallClock&) = delete;
    WallClock& operator=(const WallClock&) = delete;

    /// Follows the system's clock, at most ten times a second. \returns the present mapping
    Mapping mapping();

    /// As Mapping::steps, without reading the clocks. Requires: mapping() is called regularly.
    std::uint32_t steps() const
    {
        return steps_.load(std::memory_order_relaxed);
    }

private:
    /// One reading of both clocks.
    struct Reading
    {
        MonotonicTime instant;
        Duration offset;
        Duration uncertainty;  ///< time that passed while both were read
    };

    Reading read() const;
    Duration follow(const Reading& reading) OV_REQUIRES(mutex_);

    const HostClock& clock_;
    Mutex mutex_;
    std::optional<MonotonicTime> lastFollow_ OV_GUARDED_BY(mutex_);  ///< of the system's clock
    Mapping mapping_ OV_GUARDED_BY(mutex_);
    std::atomic<std::uint32_t> steps_{0};  ///< written with mutex_ held
};

}  // namespace refhost
