#include "refhost/playback/PlayTimeline.h"

#include <algorithm>
#include <cmath>

namespace refhost
{

void PlayTimeline::jump(WallTime media, double scale)
{
    media_ = media;
    play_ = end_;
    scale_ = scale;
}

void PlayTimeline::rescale(WallTime media, double scale)
{
    play_ = at(media);
    media_ = media;
    scale_ = scale;
}

PlayTime PlayTimeline::at(WallTime media) const
{
    const Duration passed = std::max(media - media_, Duration::zero());
    if (scale_ == 1)
    {
        return play_ + passed;
    }
    return play_ + Duration(std::llround(static_cast<double>(passed.count()) / scale_));
}

void PlayTimeline::sentUntil(WallTime media)
{
    end_ = std::max(end_, at(media));
}

}  // namespace refhost
