#include "refhost/audio/PlayoutPacer.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace refhost
{
namespace
{

constexpr int mostLaterMs = 30;
/// Of a long piece, where packets came all at once, only the end is of use.
constexpr int longestMs = 160;
constexpr int tooFarMs = 15;  // beyond aheadMs
constexpr int tooCloseMs = 10;
/// One second's trouble is the network's or a busy machine's, not the clocks'.
constexpr int patienceSeconds = 5;
/// One frame in so many is left out or added: a millisecond a second, ten times what clocks differ.
constexpr std::size_t driftStep = 1000;

}  // namespace

PlayoutPacer::PlayoutPacer(const PcmFormat& format, int aheadMs)
    : format_(format),
      channels_(static_cast<std::size_t>(format.channels)),
      aheadMs_(aheadMs),
      least_(std::numeric_limits<std::size_t>::max())
{
}

std::size_t PlayoutPacer::framesOf(int ms) const
{
    return static_cast<std::size_t>(format_.sampleRate) * static_cast<std::size_t>(ms) / 1000;
}

void PlayoutPacer::pace(std::size_t queued, std::vector<std::int16_t>& samples)
{
    if (samples.empty())
    {
        return;
    }
    if (queued > framesOf(aheadMs_ + mostLaterMs))
    {
        // Only what brings it back: a piece may be much longer than that.
        const std::size_t excess = std::min((queued - framesOf(aheadMs_)) * channels_, samples.size());
        samples.erase(samples.begin(), samples.begin() + static_cast<std::ptrdiff_t>(excess));
        if (samples.empty())
        {
            return;
        }
    }
    const std::size_t ahead = queued == 0 ? framesOf(aheadMs_) : queued;
    cut(ahead, samples);
    watch(ahead, samples.size() / channels_);
    stretch(samples);
    if (queued == 0)
    {
        samples.insert(samples.begin(), ahead * channels_, 0);
    }
}

void PlayoutPacer::cut(std::size_t ahead, std::vector<std::int16_t>& samples) const
{
    const std::size_t most = framesOf(longestMs) - std::min(ahead, framesOf(longestMs));
    const std::size_t frames = samples.size() / channels_;
    if (frames > most)
    {
        const auto cutOff = static_cast<std::ptrdiff_t>((frames - most) * channels_);
        samples.erase(samples.begin(), samples.begin() + cutOff);
    }
}

void PlayoutPacer::watch(std::size_t ahead, std::size_t frames)
{
    // The least counts, not the mean: what is more than that comes and goes with uneven packets.
    least_ = std::min(least_, ahead);
    watched_ += frames;
    if (watched_ >= framesOf(1000))
    {
        judge();
        watched_ = 0;
        least_ = std::numeric_limits<std::size_t>::max();
    }
}

void PlayoutPacer::judge()
{
    tooFar_ = least_ > framesOf(aheadMs_ + tooFarMs) ? tooFar_ + 1 : 0;
    tooClose_ = least_ < framesOf(tooCloseMs) ? tooClose_ + 1 : 0;
    const bool returned = drift_ > 0 ? least_ <= framesOf(aheadMs_) : least_ >= framesOf(aheadMs_) / 2;
    if (tooFar_ >= patienceSeconds)
    {
        drift_ = 1;
    }
    else if (tooClose_ >= patienceSeconds)
    {
        drift_ = -1;
    }
    else if (returned)
    {
        drift_ = 0;
    }
}

void PlayoutPacer::stretch(std::vector<std::int16_t>& samples)
{
    const std::size_t frames = samples.size() / channels_;
    if (drift_ == 0)
    {
        owed_ = 0;
        return;
    }
    owed_ += frames;
    const std::size_t step = owed_ / driftStep;
    if (step == 0 || frames < 2 + step)
    {
        return;
    }
    owed_ -= step * driftStep;
    const std::size_t wanted = drift_ > 0 ? frames - step : frames + step;
    stretched_.clear();
    stretched_.reserve(wanted * channels_);
    for (std::size_t i = 0; i < wanted; ++i)
    {
        const double place =
            static_cast<double>(i) * static_cast<double>(frames - 1) / static_cast<double>(wanted - 1);
        const std::size_t left = std::min(static_cast<std::size_t>(place), frames - 2);
        const double part = place - static_cast<double>(left);
        for (std::size_t c = 0; c < channels_; ++c)
        {
            const double from = samples[left * channels_ + c];
            const double to = samples[(left + 1) * channels_ + c];
            stretched_.push_back(static_cast<std::int16_t>(std::lrint(from + part * (to - from))));
        }
    }
    samples.swap(stretched_);
}

}  // namespace refhost
