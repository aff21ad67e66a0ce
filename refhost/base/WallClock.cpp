#include "refhost/base/WallClock.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <ctime>
#include <string>

#include "refhost/base/HostClock.h"
#include "refhost/base/Log.h"

namespace refhost
{
namespace
{

using namespace std::chrono_literals;

/// Between two readings of the system's clock.
constexpr Duration followInterval = 100ms;
/// A reading of both clocks that took at most this long is accurate enough.
constexpr Duration accurate = 20us;
/// A reading that took longer is discarded: the thread waited for a processor.
constexpr Duration maxUncertainty = WallClock::minStep / 4;
constexpr int maxReads = 5;
/// A smaller difference may be an error of the readings. Without a correction the mapping stays constant.
constexpr Duration tolerance = 100us;

std::string utc(WallTime date)
{
    return fmt::format("{:%Y-%m-%dT%H:%M:%S}Z", fmt::gmtime(static_cast<std::time_t>(unixSeconds(date))));
}

void logStep(WallTime from, Duration step)
{
    const Duration size = std::chrono::abs(step);
    Log::warning(
        "the clock was set {} by {}.{:03} seconds, from {} to {}; recorded and reported times follow",
        step < Duration::zero() ? "back" : "forward", size / 1s, size % 1s / 1ms, utc(from),
        utc(from + step));
}

}  // namespace

WallClock::Mapping WallClock::mapping()
{
    Duration step{};
    WallTime steppedFrom;
    Mapping found;
    {
        const MutexLock guard(mutex_);
        const MonotonicTime now = clock_.now();
        if (!lastFollow_ || now - *lastFollow_ >= followInterval)
        {
            const Reading reading = read();
            steppedFrom = mapping_.at(reading.instant);
            step = follow(reading);
        }
        found = mapping_;
    }
    if (step != Duration::zero())
    {
        logStep(steppedFrom, step);
    }
    return found;
}

WallClock::Reading WallClock::read() const
{
    Reading best{{}, {}, Duration::max()};
    for (int i = 0; i < maxReads && best.uncertainty > accurate; ++i)
    {
        const MonotonicTime before = clock_.now();
        const WallTime wall = clock_.wallNow();
        const Duration taken = clock_.now() - before;
        if (taken < best.uncertainty)
        {
            const MonotonicTime middle = before + taken / 2;
            best = {middle, wall.time_since_epoch() - middle.time_since_epoch(), taken};
        }
    }
    return best;
}

/// \returns the size of the step; 0 when the clock was not set
Duration WallClock::follow(const Reading& reading)
{
    if (!lastFollow_)
    {
        lastFollow_ = reading.instant;
        mapping_.offset = reading.offset;
        return Duration::zero();
    }
    if (reading.uncertainty > maxUncertainty)
    {
        return Duration::zero();
    }
    const Duration elapsed = reading.instant - *lastFollow_;
    const Duration difference = reading.offset - mapping_.offset;
    lastFollow_ = reading.instant;
    if (std::chrono::abs(difference) <= tolerance)
    {
        return Duration::zero();
    }
    if (std::chrono::abs(difference) < minStep)
    {
        // Clamped against overflow; every correction that is not a step is complete within an hour.
        const Duration max = std::min<Duration>(elapsed, 1h) / 1000 * slewPerSecond.count() / 1'000'000;
        mapping_.offset += std::clamp(difference, -max, max);
        return Duration::zero();
    }
    mapping_.offset = reading.offset;
    ++mapping_.steps;
    mapping_.stepsBack += difference < Duration::zero() ? 1 : 0;
    steps_.store(mapping_.steps, std::memory_order_relaxed);
    return difference;
}

}  // namespace refhost
