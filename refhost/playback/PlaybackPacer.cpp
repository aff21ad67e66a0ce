#include "refhost/playback/PlaybackPacer.h"

#include <chrono>
#include <cmath>

namespace refhost
{

void PlaybackPacer::start(MonotonicTime now, PlayTime play)
{
    running_ = true;
    since_ = now;
    sincePlay_ = play;
}

void PlaybackPacer::stop()
{
    running_ = false;
    sincePlay_ = timeline_.end();
}

void PlaybackPacer::setSpeed(double speed, MonotonicTime now)
{
    if (running_)
    {
        start(now, at(now));
    }
    speed_ = speed;
}

MonotonicTime PlaybackPacer::due(PlayTime play) const
{
    const auto ahead = static_cast<double>((play - sincePlay_).count());
    const Duration wait(static_cast<std::int64_t>(std::ceil(ahead / speed_)));
    return std::chrono::ceil<std::chrono::milliseconds>(since_ + wait);
}

PlayTime PlaybackPacer::at(MonotonicTime instant) const
{
    if (!running_)
    {
        return sincePlay_;
    }
    const auto passed = static_cast<double>((instant - since_).count());
    return sincePlay_ + Duration(std::llround(passed * speed_));
}

}  // namespace refhost
