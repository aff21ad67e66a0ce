#include "refhost/rtp/RtpTimeline.h"

#include <algorithm>

namespace refhost
{
RtpTimeline::RtpTimeline(RtpClock clock, std::uint32_t first) : clock_(clock), last_(first) {}

std::uint32_t RtpTimeline::peek(const AccessUnit& unit, std::uint32_t epoch) const
{
    if (announced_)
    {
        return last_;
    }
    return epoch == epoch_ ? unit.rtpTimestamp + offset_ : following(unit.captureTime);
}

std::uint32_t RtpTimeline::take(const AccessUnit& unit, std::uint32_t epoch, bool& moved)
{
    moved = announced_ || epoch != epoch_;
    last_ = peek(unit, epoch);
    if (moved)
    {
        offset_ = last_ - unit.rtpTimestamp;
        epoch_ = epoch;
        announced_ = false;
    }
    lastCapture_ = unit.captureTime;
    return last_;
}

std::uint32_t RtpTimeline::announce(MonotonicTime now)
{
    if (!announced_)
    {
        last_ = following(now);
        announced_ = true;
    }
    return last_;
}

std::uint32_t RtpTimeline::at(MonotonicTime capture) const
{
    return last_ + static_cast<std::uint32_t>(clock_.ticks(capture - lastCapture_));
}

std::uint32_t RtpTimeline::following(MonotonicTime capture) const
{
    const std::int64_t elapsed = clock_.ticks(capture - lastCapture_);
    return last_ + static_cast<std::uint32_t>(std::max<std::int64_t>(elapsed, 1));
}

}  // namespace refhost
