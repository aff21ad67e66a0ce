#include "refhost/rtp/RtpTimeline.h"

#include <algorithm>

namespace refhost
{
namespace
{

constexpr std::int64_t nsPerSecond = 1'000'000'000;

std::int64_t ticks(std::int64_t ns, std::uint32_t rate)
{
    // In two steps: the product of a whole day and a clock rate does not fit.
    return ns / nsPerSecond * rate + ns % nsPerSecond * rate / nsPerSecond;
}

}  // namespace

RtpTimeline::RtpTimeline(std::uint32_t clockRate, std::uint32_t first) : clockRate_(clockRate), last_(first)
{
}

std::uint32_t RtpTimeline::peek(const AccessUnit& unit, std::uint32_t epoch) const
{
    if (announced_)
    {
        return last_;
    }
    return epoch == epoch_ ? unit.rtpTimestamp + offset_ : following(unit.captureTimeNs);
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
    lastCaptureNs_ = unit.captureTimeNs;
    return last_;
}

std::uint32_t RtpTimeline::announce(std::int64_t nowNs)
{
    if (!announced_)
    {
        last_ = following(nowNs);
        announced_ = true;
    }
    return last_;
}

std::uint32_t RtpTimeline::at(std::int64_t captureNs) const
{
    return last_ + static_cast<std::uint32_t>(ticks(captureNs - lastCaptureNs_, clockRate_));
}

std::uint32_t RtpTimeline::following(std::int64_t captureNs) const
{
    const std::int64_t elapsed = ticks(captureNs - lastCaptureNs_, clockRate_);
    return last_ + static_cast<std::uint32_t>(std::max<std::int64_t>(elapsed, 1));
}

}  // namespace refhost
