#include "refhost/playback/PlaybackPacer.h"

#include <cmath>

namespace refhost
{

void PlaybackPacer::start(std::int64_t nowMs, std::int64_t nowNs, std::int64_t playNs)
{
    running_ = true;
    sinceMs_ = nowMs;
    sinceNs_ = nowNs;
    sincePlayNs_ = playNs;
}

void PlaybackPacer::stop()
{
    running_ = false;
    sincePlayNs_ = timeline_.endNs();
}

void PlaybackPacer::setSpeed(double speed, std::int64_t nowMs, std::int64_t nowNs)
{
    if (running_)
    {
        const auto passedNs = static_cast<double>(nowMs - sinceMs_) * 1e6;
        start(nowMs, nowNs, sincePlayNs_ + std::llround(passedNs * speed_));
    }
    speed_ = speed;
}

std::int64_t PlaybackPacer::dueMs(std::int64_t playNs) const
{
    const auto ahead = static_cast<double>(playNs - sincePlayNs_);
    return sinceMs_ + static_cast<std::int64_t>(std::ceil(ahead / speed_ / 1e6));
}

std::int64_t PlaybackPacer::playNs(std::int64_t nowNs) const
{
    if (!running_)
    {
        return sincePlayNs_;
    }
    return sincePlayNs_ + std::llround(static_cast<double>(nowNs - sinceNs_) * speed_);
}

}  // namespace refhost
