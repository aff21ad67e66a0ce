#include "bench/load/Pace.h"

#include <algorithm>

namespace rtspload
{

void Pace::onPacket(std::uint32_t timestamp, std::int64_t nowNs)
{
    if (last_ && timestamp == *last_)
    {
        return;
    }
    firstNs_ = last_ ? firstNs_ : nowNs;
    ticks_ += last_ ? static_cast<std::int32_t>(timestamp - *last_) : 0;
    last_ = timestamp;
    constexpr std::int64_t ticksInAMillisecond = 90;
    const std::int64_t expectedUs = ticks_ * 1000 / ticksInAMillisecond;
    offsetsUs_.push_back(static_cast<std::int32_t>((nowNs - firstNs_) / 1000 - expectedUs));
}

void Pace::addTo(Latencies& late) const
{
    if (offsetsUs_.empty())
    {
        return;
    }
    const std::int32_t earliest = *std::min_element(offsetsUs_.begin(), offsetsUs_.end());
    for (const std::int32_t offset : offsetsUs_)
    {
        late.add(std::int64_t{offset - earliest} * 1000);
    }
}

}  // namespace rtspload
