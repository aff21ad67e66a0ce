#include "refhost/talkback/LossConcealer.h"

#include <algorithm>
#include <cmath>

namespace refhost
{
namespace
{

using std::chrono::milliseconds;

/// How much of what was played is kept.
constexpr milliseconds keptPast(45);
/// The pitch of a voice is between 66 and 400 Hz.
constexpr milliseconds maxPeriod(15);
constexpr int maxPitch = 400;  // Hz
/// How much is compared to find the period.
constexpr milliseconds compared(20);
/// Concealment has full volume for this long ...
constexpr milliseconds fullVolume(10);
/// ... and is silent after this long.
constexpr milliseconds fadedOut(60);
/// Over how much the audio behind a gap is blended in.
constexpr milliseconds blend(4);

}  // namespace

void LossConcealer::reset()
{
    past_.clear();
    period_ = 0;
    made_ = 0;
}

void LossConcealer::use(const PcmFormat& format)
{
    if (format.sampleRate != format_.sampleRate || format.channels != format_.channels)
    {
        reset();
        format_ = format;
    }
}

void LossConcealer::noteDecoded(const PcmFormat& format, std::vector<std::int16_t>& samples)
{
    if (samples.empty())
    {
        return;
    }
    use(format);
    const auto channels = static_cast<std::size_t>(format_.channels);
    if (period_ != 0)
    {
        const std::size_t blended = std::min(format_.frames(blend), samples.size() / channels);
        for (std::size_t i = 0; i < blended; ++i, ++made_)
        {
            const double part = static_cast<double>(i + 1) / static_cast<double>(blended + 1);
            for (std::size_t c = 0; c < channels; ++c)
            {
                std::int16_t& sample = samples[i * channels + c];
                sample = static_cast<std::int16_t>(std::lrint(part * sample + (1 - part) * next(c)));
            }
        }
        period_ = 0;
        made_ = 0;
    }
    past_.insert(past_.end(), samples.begin(), samples.end());
    const std::size_t kept = format_.frames(keptPast) * channels;
    if (past_.size() > kept)
    {
        past_.erase(past_.begin(), past_.end() - static_cast<std::ptrdiff_t>(kept));
    }
}

// The lag at which the first channel's past is most like itself.
std::size_t LossConcealer::period() const
{
    const auto channels = static_cast<std::size_t>(format_.channels);
    const std::size_t frames = past_.size() / channels;
    const std::size_t window = format_.frames(compared);
    const std::size_t longest = format_.frames(maxPeriod);
    const auto shortest = static_cast<std::size_t>(format_.sampleRate / maxPitch);
    if (frames < window + longest || shortest == 0)
    {
        return std::max<std::size_t>(1, std::min(frames, longest));
    }
    // Not every sample at high rates: voice has little above 4 kHz.
    const std::size_t step = std::max<std::size_t>(1, static_cast<std::size_t>(format_.sampleRate) / 8000);
    const auto at = [&](std::size_t frame) { return static_cast<double>(past_[frame * channels]); };
    std::size_t best = longest;
    double bestLikeness = 0;
    for (std::size_t lag = shortest; lag <= longest; ++lag)
    {
        double product = 0;
        double power = 1;
        for (std::size_t i = frames - window; i < frames; i += step)
        {
            product += at(i) * at(i - lag);
            power += at(i - lag) * at(i - lag);
        }
        const double likeness = product / std::sqrt(power);
        if (likeness > bestLikeness)
        {
            best = lag;
            bestLikeness = likeness;
        }
    }
    return best;
}

std::int16_t LossConcealer::next(std::size_t channel) const
{
    const auto channels = static_cast<std::size_t>(format_.channels);
    const std::size_t frames = past_.size() / channels;
    const std::size_t full = format_.frames(fullVolume);
    const std::size_t faded = format_.frames(fadedOut);
    if (made_ >= faded)
    {
        return 0;
    }
    const double gain =
        made_ < full ? 1 : static_cast<double>(faded - made_) / static_cast<double>(faded - full);
    const std::size_t frame = frames - period_ + made_ % period_;
    return static_cast<std::int16_t>(std::lrint(gain * past_[frame * channels + channel]));
}

void LossConcealer::makeUp(const PcmFormat& format, std::size_t frames, std::vector<std::int16_t>& samples)
{
    use(format);
    const auto channels = static_cast<std::size_t>(format_.channels);
    if (past_.empty())
    {
        samples.insert(samples.end(), frames * channels, 0);
        return;
    }
    if (period_ == 0)
    {
        period_ = period();
    }
    for (std::size_t i = 0; i < frames; ++i, ++made_)
    {
        for (std::size_t c = 0; c < channels; ++c)
        {
            samples.push_back(next(c));
        }
    }
}

}  // namespace refhost
