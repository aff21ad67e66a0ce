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
/// One second's trouble is the network's or a busy machine's, not the clocks'.
constexpr int patienceSeconds = 5;
/// One frame in so many is left out or added: a millisecond a second, ten times what clocks differ.
constexpr std::size_t driftStep = 1000;

}  // namespace

PlayoutPacer::PlayoutPacer(const PcmFormat& format, milliseconds lead)
    : format_(format),
      channels_(static_cast<std::size_t>(format.channels)),
      lead_(lead),
      min_(std::numeric_limits<std::size_t>::max()),
      shortest_(min_),
      shortestBefore_(min_)
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
        // Only what brings it back: a piece may be much longer than that.
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
        begin(packet, samples);
        return;
    }
    const std::size_t longest = format_.frames(maxBlock);
    keepLast(longest - std::min(queued, longest), samples);
    watch(queued, samples.size() / channels_);
    stretch(samples);
}

/// Silence goes before the piece for as much as it is shorter than a packet with its lead. A piece much
/// longer than that came late: its beginning is dropped, because otherwise the packets behind it would be.
void PlayoutPacer::begin(std::size_t packet, std::vector<std::int16_t>& samples)
{
    const std::size_t wanted = format_.frames(lead_) + packet;
    const std::size_t lead = wanted - std::min(wanted, samples.size() / channels_);
    keepLast(std::min(wanted + format_.frames(maxDelay), format_.frames(maxBlock)) - lead, samples);
    watch(format_.frames(lead_), samples.size() / channels_);
    stretch(samples);
    samples.insert(samples.begin(), lead * channels_, 0);
}

/// How long one packet is: the shortest piece of late, as pieces may be several packets and what is made up.
std::size_t PlayoutPacer::packetOf(std::size_t frames)
{
    shortest_ = std::min(shortest_, frames);
    return std::min(shortest_, shortestBefore_);
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
    // The least counts, not the mean: what is more than that comes and goes with uneven packets.
    min_ = std::min(min_, ahead);
    watched_ += frames;
    if (watched_ >= format_.frames(judged))
    {
        judge();
        watched_ = 0;
        min_ = std::numeric_limits<std::size_t>::max();
        shortestBefore_ = std::exchange(shortest_, min_);
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
