#include "refhost/capture/SourceClock.h"

#include <algorithm>
#include <cstdlib>

namespace refhost
{
namespace
{

constexpr std::int64_t nsPerSecond = 1'000'000'000;
constexpr std::int64_t nsPerMs = 1'000'000;

constexpr std::int64_t maxReorder = nsPerSecond;    // that a B-frame's timestamp lies behind
constexpr std::int64_t maxAhead = 3 * nsPerSecond;  // that a timestamp runs ahead of its arrival in one step
constexpr std::int64_t restartStep = nsPerMs;       // least media time across a break of the timestamps
constexpr std::int64_t delayWindow = 30 * nsPerSecond;
constexpr std::int64_t maxReportDistance = 60 * nsPerSecond;
constexpr std::size_t maxKnots = 2000;  // 40 seconds and more: nothing waits so long for its time

// How fast the offset is corrected, in parts of the media time. What reports say, and that a packet came much
// earlier than it was thought to be captured, is certain; that packets come later may be the network. Drift
// is less than one in a thousand.
constexpr std::int64_t certainPart = 2;
constexpr std::int64_t smallPart = 1000;
constexpr std::int64_t lateLargePart = 20;
constexpr std::int64_t earlyLarge = 20 * nsPerMs;
constexpr std::int64_t lateLarge = nsPerSecond;

}  // namespace

SourceClock::SourceClock(std::uint32_t clockRate, bool reordered)
    : clockRate_(clockRate), reordered_(reordered)
{
}

std::int64_t SourceClock::place(std::uint32_t timestamp, std::uint32_t ssrc, std::int64_t arrivalNs)
{
    const MutexLock guard(mutex_);
    if (!started_ || !continues(span(lastTimestamp_, timestamp), arrivalNs - lastArrivalNs_))
    {
        restart(timestamp, ssrc, arrivalNs);
    }
    else if (ssrc != ssrc_)
    {
        ssrc_ = ssrc;
        reportedNs_.reset();
    }
    // In ticks, so that nothing is lost to rounding over days.
    lastTicks_ += static_cast<std::int32_t>(timestamp - lastTimestamp_);
    lastTimestamp_ = timestamp;
    lastArrivalNs_ = arrivalNs;
    lastMediaNs_ = std::max<std::int64_t>(
        baseNs_ + lastTicks_ / clockRate_ * nsPerSecond + lastTicks_ % clockRate_ * nsPerSecond / clockRate_,
        0);
    noteDelay(arrivalNs - lastMediaNs_, arrivalNs);
    if (pending_ && pending_->ssrc == ssrc_)
    {
        const std::int64_t distance = span(lastTimestamp_, pending_->timestamp);
        if (std::abs(distance) <= maxReportDistance)
        {
            reportedNs_ = pending_->reportNs - (lastMediaNs_ + distance);
        }
        pending_.reset();
    }
    if (lastMediaNs_ > latestMediaNs_ || knots_.empty())
    {
        follow(lastMediaNs_);
        latestMediaNs_ = std::max(latestMediaNs_, lastMediaNs_);
    }
    return lastMediaNs_;
}

SourceClock::Report SourceClock::report(std::uint32_t timestamp, std::uint32_t ssrc,
                                        std::optional<std::int64_t> reportNs, std::int64_t arrivalNs)
{
    const MutexLock guard(mutex_);
    if (started_ && ssrc != ssrc_)
    {
        // The media may be about to change to it.
        pending_ = reportNs ? std::optional<SenderReport>({timestamp, ssrc, *reportNs}) : std::nullopt;
        return Report::unusable;
    }
    // Judged by the fastest packets: the report itself may have been held up for long.
    const std::int64_t distance = started_ ? span(lastTimestamp_, timestamp) : 0;
    if (std::abs(distance) > maxReportDistance)
    {
        return Report::unusable;
    }
    const std::int64_t expected = started_ ? lastMediaNs_ + distance + minDelay() : arrivalNs;
    if (!reportNs || std::abs(*reportNs - expected) > maxClockErrorNs)
    {
        reportedNs_.reset();
        pending_.reset();
        return Report::wrongClock;
    }
    if (!started_)
    {
        pending_ = SenderReport{timestamp, ssrc, *reportNs};
        return Report::used;
    }
    reportedNs_ = *reportNs - (lastMediaNs_ + distance);
    return Report::used;
}

std::int64_t SourceClock::captured(std::int64_t mediaNs) const
{
    const MutexLock guard(mutex_);
    if (knots_.empty())
    {
        return mediaNs;
    }
    const auto next =
        std::upper_bound(knots_.begin(), knots_.end(), mediaNs,
                         [](std::int64_t time, const Knot& knot) { return time < knot.mediaNs; });
    if (next == knots_.begin())
    {
        return mediaNs + knots_.front().offsetNs;
    }
    const Knot& before = *std::prev(next);
    if (next == knots_.end())
    {
        return mediaNs + before.offsetNs;
    }
    const double part =
        static_cast<double>(mediaNs - before.mediaNs) / static_cast<double>(next->mediaNs - before.mediaNs);
    const double change = static_cast<double>(next->offsetNs - before.offsetNs);
    return mediaNs + before.offsetNs + static_cast<std::int64_t>(part * change);
}

std::int64_t SourceClock::span(std::uint32_t from, std::uint32_t to) const
{
    return static_cast<std::int64_t>(static_cast<std::int32_t>(to - from)) * nsPerSecond / clockRate_;
}

bool SourceClock::continues(std::int64_t spanNs, std::int64_t elapsedNs) const
{
    const std::int64_t behindLatest = latestMediaNs_ - (lastMediaNs_ + spanNs);
    return behindLatest <= (reordered_ ? maxReorder : 0) &&
           spanNs <= std::max<std::int64_t>(elapsedNs, 0) + maxAhead;
}

void SourceClock::restart(std::uint32_t timestamp, std::uint32_t ssrc, std::int64_t arrivalNs)
{
    // Media time goes on by what has passed meanwhile, and the capture times with it.
    baseNs_ = started_ ? latestMediaNs_ + std::max(arrivalNs - lastArrivalNs_, restartStep)
                       : std::max<std::int64_t>(arrivalNs, 0);
    started_ = true;
    ssrc_ = ssrc;
    lastTimestamp_ = timestamp;
    lastTicks_ = 0;
    delays_.clear();
    reportedNs_.reset();
}

void SourceClock::noteDelay(std::int64_t delayNs, std::int64_t arrivalNs)
{
    if (delays_.empty() || arrivalNs - delays_.back().sinceNs >= nsPerSecond)
    {
        delays_.push_back({arrivalNs, delayNs});
    }
    delays_.back().minNs = std::min(delays_.back().minNs, delayNs);
    while (delays_.size() > 1 && arrivalNs - delays_.front().sinceNs > delayWindow)
    {
        delays_.pop_front();
    }
}

std::int64_t SourceClock::minDelay() const
{
    const auto min =
        std::min_element(delays_.begin(), delays_.end(),
                         [](const Delay& left, const Delay& right) { return left.minNs < right.minNs; });
    return min->minNs;
}

void SourceClock::follow(std::int64_t mediaNs)
{
    const std::int64_t target = reportedNs_ ? *reportedNs_ : minDelay();
    if (knots_.empty())
    {
        knots_.push_back({mediaNs, target});
        return;
    }
    const Knot last = knots_.back();
    const std::int64_t error = target - last.offsetNs;
    const std::int64_t elapsed = mediaNs - last.mediaNs;
    const bool certain = reportedNs_ || error < -earlyLarge;
    const std::int64_t part = certain ? certainPart : error > lateLarge ? lateLargePart : smallPart;
    const Knot next{mediaNs, last.offsetNs + std::clamp(error, -elapsed / part, elapsed / part)};
    if (knots_.size() > 1 && error == 0 && knots_[knots_.size() - 2].offsetNs == target)
    {
        knots_.back() = next;
        return;
    }
    knots_.push_back(next);
    while (knots_.size() > maxKnots)
    {
        knots_.pop_front();
    }
}

}  // namespace refhost
