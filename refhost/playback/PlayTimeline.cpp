#include "refhost/playback/PlayTimeline.h"

#include <algorithm>
#include <cmath>

namespace refhost
{

void PlayTimeline::jump(std::int64_t mediaNs, double scale)
{
    mediaNs_ = mediaNs;
    playNs_ = endNs_;
    scale_ = scale;
}

void PlayTimeline::rescale(std::int64_t mediaNs, double scale)
{
    playNs_ = at(mediaNs);
    mediaNs_ = mediaNs;
    scale_ = scale;
}

std::int64_t PlayTimeline::at(std::int64_t mediaNs) const
{
    const std::int64_t passed = std::max<std::int64_t>(mediaNs - mediaNs_, 0);
    if (scale_ == 1)
    {
        return playNs_ + passed;
    }
    return playNs_ + std::llround(static_cast<double>(passed) / scale_);
}

void PlayTimeline::sentUntil(std::int64_t mediaNs)
{
    endNs_ = std::max(endNs_, at(mediaNs));
}

std::uint32_t PlayTimeline::ticks(std::int64_t playNs, std::uint32_t clockRate)
{
    constexpr std::int64_t second = 1'000'000'000;
    const std::int64_t rate = clockRate;
    const std::int64_t whole = playNs / second;
    const std::int64_t rest = (playNs % second * rate + second / 2) / second;
    return static_cast<std::uint32_t>(static_cast<std::uint64_t>(whole * rate + rest));
}

}  // namespace refhost
