#include "refhost/base/WallClock.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <limits>
#include <string>

#include "refhost/base/HostClock.h"
#include "refhost/base/Log.h"

namespace refhost
{
namespace
{

constexpr std::int64_t second = 1'000'000'000;
/// Between two looks at the system's clock.
constexpr std::int64_t followPauseNs = 100'000'000;
/// A reading of both clocks during which less time passed is exact enough.
constexpr std::int64_t exactNs = 20'000;
/// One during which more passed, because the thread had to wait for a processor, says nothing.
constexpr std::int64_t uselessNs = WallClock::minStepNs / 4;
constexpr int maxReads = 5;
/// A smaller difference may be the readings' own error: without a correction dates go on exactly evenly.
constexpr std::int64_t toleranceNs = 100'000;

std::string utc(std::int64_t wallNs)
{
    return fmt::format("{:%Y-%m-%dT%H:%M:%S}Z", fmt::gmtime(static_cast<std::time_t>(wallNs / second)));
}

void logStep(std::int64_t fromNs, std::int64_t stepNs)
{
    Log::warning(
        "the clock was set {} by {}.{:03} seconds, from {} to {}; recorded and reported times follow",
        stepNs < 0 ? "back" : "forward", std::abs(stepNs) / second, std::abs(stepNs) % second / 1'000'000,
        utc(fromNs), utc(fromNs + stepNs));
}

}  // namespace

WallClock::Mapping WallClock::mapping()
{
    std::int64_t stepNs = 0;
    std::int64_t steppedFromNs = 0;
    Mapping found;
    {
        const MutexLock guard(mutex_);
        const std::int64_t nowNs = clock_.monotonicNs();
        if (!followedNs_ || nowNs - *followedNs_ >= followPauseNs)
        {
            const Reading reading = read();
            steppedFromNs = mapping_.at(reading.monotonicNs);
            stepNs = follow(reading);
        }
        found = mapping_;
    }
    if (stepNs != 0)
    {
        logStep(steppedFromNs, stepNs);
    }
    return found;
}

WallClock::Reading WallClock::read() const
{
    Reading best{0, 0, std::numeric_limits<std::int64_t>::max()};
    for (int i = 0; i < maxReads && best.uncertaintyNs > exactNs; ++i)
    {
        const std::int64_t beforeNs = clock_.monotonicNs();
        const std::int64_t wallNs = clock_.wallNs();
        const std::int64_t passedNs = clock_.monotonicNs() - beforeNs;
        if (passedNs < best.uncertaintyNs)
        {
            const std::int64_t betweenNs = beforeNs + passedNs / 2;
            best = {betweenNs, wallNs - betweenNs, passedNs};
        }
    }
    return best;
}

/// \returns by how much the clock was set; 0 where it was not
std::int64_t WallClock::follow(const Reading& reading)
{
    if (!followedNs_)
    {
        followedNs_ = reading.monotonicNs;
        mapping_.offsetNs = reading.offsetNs;
        return 0;
    }
    if (reading.uncertaintyNs > uselessNs)
    {
        return 0;
    }
    const std::int64_t elapsedNs = reading.monotonicNs - *followedNs_;
    const std::int64_t differenceNs = reading.offsetNs - mapping_.offsetNs;
    followedNs_ = reading.monotonicNs;
    if (std::abs(differenceNs) <= toleranceNs)
    {
        return 0;
    }
    if (std::abs(differenceNs) < minStepNs)
    {
        // An hour of following reaches every correction that is not a step.
        const std::int64_t maxNs = std::min(elapsedNs, 3600 * second) / 1000 * slewNsPerSecond / 1'000'000;
        mapping_.offsetNs += std::clamp(differenceNs, -maxNs, maxNs);
        return 0;
    }
    mapping_.offsetNs = reading.offsetNs;
    ++mapping_.steps;
    mapping_.stepsBack += differenceNs < 0 ? 1 : 0;
    steps_.store(mapping_.steps, std::memory_order_relaxed);
    return differenceNs;
}

}  // namespace refhost
