#include "refhost/capture/SourceClock.h"

#include <algorithm>
#include <chrono>

namespace refhost
{
namespace
{

using namespace std::chrono_literals;

constexpr Duration maxReorder = 1s;    // of a reordered frame's timestamp behind the latest
constexpr Duration maxAhead = 3s;      // of a timestamp ahead of its arrival in one step
constexpr Duration restartStep = 1ms;  // min media time across a discontinuity of the timestamps
constexpr Duration delayWindow = 30s;
constexpr Duration maxReportDistance = 60s;
constexpr std::size_t maxKnots = 2000;  // 40 seconds or more: no unit is delayed that long

// Divisors of the media time that limit how fast the offset is corrected. Reports are certain, and so is a
// packet that arrived much earlier than its assumed capture; late packets may be due to the network. Drift is
// less than one in a thousand.
constexpr std::int64_t certainPart = 2;
constexpr std::int64_t smallPart = 1000;
constexpr std::int64_t lateLargePart = 20;
constexpr Duration earlyLarge = 20ms;
constexpr Duration lateLarge = 1s;

}  // namespace

SourceClock::SourceClock(RtpClock rtpClock, bool reordered) : rtpClock_(rtpClock), reordered_(reordered) {}

Duration SourceClock::place(std::uint32_t timestamp, std::uint32_t ssrc, Duration arrival)
{
    const MutexLock guard(mutex_);
    if (!started_ || !continues(span(lastTimestamp_, timestamp), arrival - lastArrival_))
    {
        restart(timestamp, ssrc, arrival);
    }
    else if (ssrc != ssrc_)
    {
        ssrc_ = ssrc;
        reported_.reset();
    }
    // In ticks, so that rounding errors do not add up.
    lastTicks_ += RtpClock::difference(timestamp, lastTimestamp_);
    lastTimestamp_ = timestamp;
    lastArrival_ = arrival;
    lastMedia_ = std::max(base_ + rtpClock_.span(lastTicks_), Duration::zero());
    noteDelay(arrival - lastMedia_, arrival);
    if (pending_ && pending_->ssrc == ssrc_)
    {
        const Duration distance = span(lastTimestamp_, pending_->timestamp);
        if (std::chrono::abs(distance) <= maxReportDistance)
        {
            reported_ = pending_->report - (lastMedia_ + distance);
        }
        pending_.reset();
    }
    if (lastMedia_ > latestMedia_ || knots_.empty())
    {
        follow(lastMedia_);
        latestMedia_ = std::max(latestMedia_, lastMedia_);
    }
    return lastMedia_;
}

SourceClock::Report SourceClock::report(std::uint32_t timestamp, std::uint32_t ssrc,
                                        std::optional<Duration> report, Duration arrival)
{
    const MutexLock guard(mutex_);
    if (started_ && ssrc != ssrc_)
    {
        // The media may be about to change to this SSRC.
        pending_ = report ? std::optional<SenderReport>({timestamp, ssrc, *report}) : std::nullopt;
        return Report::unusable;
    }
    // Compared with the fastest packets: the report itself may be late.
    const Duration distance = started_ ? span(lastTimestamp_, timestamp) : Duration::zero();
    if (std::chrono::abs(distance) > maxReportDistance)
    {
        return Report::unusable;
    }
    const Duration expected = started_ ? lastMedia_ + distance + minDelay() : arrival;
    if (!report || std::chrono::abs(*report - expected) > maxClockError)
    {
        reported_.reset();
        pending_.reset();
        return Report::wrongClock;
    }
    if (!started_)
    {
        pending_ = SenderReport{timestamp, ssrc, *report};
        return Report::used;
    }
    reported_ = *report - (lastMedia_ + distance);
    return Report::used;
}

Duration SourceClock::captured(Duration media) const
{
    const MutexLock guard(mutex_);
    if (knots_.empty())
    {
        return media;
    }
    const auto next = std::upper_bound(knots_.begin(), knots_.end(), media,
                                       [](Duration time, const Knot& knot) { return time < knot.media; });
    if (next == knots_.begin())
    {
        return media + knots_.front().offset;
    }
    const Knot& before = *std::prev(next);
    if (next == knots_.end())
    {
        return media + before.offset;
    }
    const double part = static_cast<double>((media - before.media).count()) /
                        static_cast<double>((next->media - before.media).count());
    const double change = static_cast<double>((next->offset - before.offset).count());
    return media + before.offset + Duration(static_cast<std::int64_t>(part * change));
}

Duration SourceClock::span(std::uint32_t from, std::uint32_t to) const
{
    return rtpClock_.span(RtpClock::difference(to, from));
}

bool SourceClock::continues(Duration span, Duration elapsed) const
{
    const Duration behindLatest = latestMedia_ - (lastMedia_ + span);
    return behindLatest <= (reordered_ ? maxReorder : Duration::zero()) &&
           span <= std::max(elapsed, Duration::zero()) + maxAhead;
}

void SourceClock::restart(std::uint32_t timestamp, std::uint32_t ssrc, Duration arrival)
{
    // Media time advances by the elapsed time, and the capture times with it.
    base_ = started_ ? latestMedia_ + std::max(arrival - lastArrival_, restartStep)
                     : std::max(arrival, Duration::zero());
    started_ = true;
    ssrc_ = ssrc;
    lastTimestamp_ = timestamp;
    lastTicks_ = 0;
    delays_.clear();
    reported_.reset();
}

void SourceClock::noteDelay(Duration delay, Duration arrival)
{
    if (delays_.empty() || arrival - delays_.back().since >= 1s)
    {
        delays_.push_back({arrival, delay});
    }
    delays_.back().min = std::min(delays_.back().min, delay);
    while (delays_.size() > 1 && arrival - delays_.front().since > delayWindow)
    {
        delays_.pop_front();
    }
}

Duration SourceClock::minDelay() const
{
    const auto min =
        std::min_element(delays_.begin(), delays_.end(),
                         [](const Delay& left, const Delay& right) { return left.min < right.min; });
    return min->min;
}

void SourceClock::follow(Duration media)
{
    const Duration target = reported_ ? *reported_ : minDelay();
    if (knots_.empty())
    {
        knots_.push_back({media, target});
        return;
    }
    const Knot last = knots_.back();
    const Duration error = target - last.offset;
    const Duration elapsed = media - last.media;
    const bool certain = reported_ || error < -earlyLarge;
    const std::int64_t part = certain ? certainPart : error > lateLarge ? lateLargePart : smallPart;
    const Knot next{media, last.offset + std::clamp(error, -elapsed / part, elapsed / part)};
    if (knots_.size() > 1 && error == Duration::zero() && knots_[knots_.size() - 2].offset == target)
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
