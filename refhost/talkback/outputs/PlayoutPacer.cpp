#include "refhost/talkback/outputs/PlayoutPacer.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

namespace refhost
{
namespace
{

using std::chrono::milliseconds;

/// How much later than it started audio may be played.
constexpr milliseconds maxDelay(30);
/// Of a long block, where packets came all at once, only the end is of use.
constexpr milliseconds maxBlock(160);
/// More than this beyond the lead is too far ahead.
constexpr milliseconds maxExcess(15);
/// Less than this is too close to running dry.
constexpr milliseconds minAhead(10);
/// The span over which the distance is judged.
constexpr milliseconds judged(1000);
/// One bad second is due to the network or a busy machine, not to the clocks.
constexpr int patienceSeconds = 5;
/// One frame in so many is removed or added: a millisecond per second, ten times the difference of clocks.
constexpr std::size_t driftStep = 1000;

}  // namespace

PlayoutPacer::PlayoutPacer(const PcmFormat& format, milliseconds lead)
    : format_(format),
      channels_(static_cast<std::size_t>(format.channels)),
      lead_(lead),
      min_(std::numeric_limits<std::size_t>::max()),
      minBlock_(min_),
      minBlockBefore_(min_)
{
}

void PlayoutPacer::pace(std::size_t queued, std::vector<std::int16_t>& samples)
{
    if (samples.empty())
    {
        return;
    }
    if (queued > format_.frames(lead_ + maxDelay))
    {
        // Only the excess: a block may be much longer than that.
        const std::size_t excess = std::min((queued - format_.frames(lead_)) * channels_, samples.size());
        samples.erase(samples.begin(), samples.begin() + static_cast<std::ptrdiff_t>(excess));
        if (samples.empty())
        {
            return;
        }
    }
    const std::size_t packet = packetOf(samples.size() / channels_);
    if (queued == 0)
    {
        start(packet, samples);
        return;
    }
    const std::size_t longest = format_.frames(maxBlock);
    keepLast(longest - std::min(queued, longest), samples);
    watch(queued, samples.size() / channels_);
    stretch(samples);
}

/// Silence fills a block up to the length of a packet with its lead. A much longer block is late: its start
/// is dropped, because otherwise the packets behind it would be.
void PlayoutPacer::start(std::size_t packet, std::vector<std::int16_t>& samples)
{
    const std::size_t target = format_.frames(lead_) + packet;
    const std::size_t lead = target - std::min(target, samples.size() / channels_);
    keepLast(std::min(target + format_.frames(maxDelay), format_.frames(maxBlock)) - lead, samples);
    watch(format_.frames(lead_), samples.size() / channels_);
    stretch(samples);
    samples.insert(samples.begin(), lead * channels_, 0);
}

/// The length of one packet: the shortest recent block, because blocks may be several packets and
/// concealment.
std::size_t PlayoutPacer::packetOf(std::size_t frames)
{
    minBlock_ = std::min(minBlock_, frames);
    return std::min(minBlock_, minBlockBefore_);
}

void PlayoutPacer::keepLast(std::size_t frames, std::vector<std::int16_t>& samples) const
{
    if (samples.size() > frames * channels_)
    {
        samples.erase(samples.begin(), samples.end() - static_cast<std::ptrdiff_t>(frames * channels_));
    }
}

void PlayoutPacer::watch(std::size_t ahead, std::size_t frames)
{
    // The minimum, not the mean: anything above it varies with jitter.
    min_ = std::min(min_, ahead);
    watched_ += frames;
    if (watched_ >= format_.frames(judged))
    {
        judge();
        watched_ = 0;
        min_ = std::numeric_limits<std::size_t>::max();
        minBlockBefore_ = std::exchange(minBlock_, min_);
    }
}

void PlayoutPacer::judge()
{
    tooFar_ = min_ > format_.frames(lead_ + maxExcess) ? tooFar_ + 1 : 0;
    tooClose_ = min_ < format_.frames(minAhead) ? tooClose_ + 1 : 0;
    const bool returned = drift_ > 0 ? min_ <= format_.frames(lead_) : min_ >= format_.frames(lead_) / 2;
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
    const std::size_t target = drift_ > 0 ? frames - step : frames + step;
    stretched_.clear();
    stretched_.reserve(target * channels_);
    for (std::size_t i = 0; i < target; ++i)
    {
        const double place =
            static_cast<double>(i) * static_cast<double>(frames - 1) / static_cast<double>(target - 1);
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
