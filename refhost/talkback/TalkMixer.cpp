#include "refhost/talkback/TalkMixer.h"

#include <algorithm>
#include <limits>

namespace refhost
{
namespace
{

constexpr std::int64_t aheadMs = 60;
constexpr std::int64_t maxLaterMs = 30;
constexpr std::int64_t maxMs = 200;
/// After a longer break the sum goes on from now instead of being made up for.
constexpr std::int64_t breakMs = 100;
constexpr std::int64_t nsPerSecond = 1'000'000'000;
constexpr std::int64_t nsPerMs = 1'000'000;

std::int16_t saturated(std::int32_t sum)
{
    using Limits = std::numeric_limits<std::int16_t>;
    return static_cast<std::int16_t>(std::clamp<std::int32_t>(sum, Limits::min(), Limits::max()));
}

}  // namespace

TalkMixer::TalkMixer(const PcmFormat& format) : format_(format) {}

std::size_t TalkMixer::samplesOf(std::int64_t ms) const
{
    return static_cast<std::size_t>(ms * format_.sampleRate / 1000 * format_.channels);
}

void TalkMixer::add(TalkSender sender, const std::vector<std::int16_t>& samples)
{
    Line& line = lines_[sender];
    // Nothing else would ever bring a sender back whose packets came all at once.
    if (line.samples.size() > samplesOf(aheadMs + maxLaterMs))
    {
        line.keepLast(samplesOf(aheadMs));
    }
    line.samples.insert(line.samples.end(), samples.begin(), samples.end());
    line.keepLast(samplesOf(maxMs));
    line.started = line.started || line.samples.size() >= samplesOf(aheadMs);
}

void TalkMixer::Line::keepLast(std::size_t max)
{
    if (samples.size() > max)
    {
        samples.erase(samples.begin(), samples.end() - static_cast<std::ptrdiff_t>(max));
    }
}

void TalkMixer::remove(TalkSender sender)
{
    lines_.erase(sender);
}

void TalkMixer::take(std::int64_t nowNs, std::vector<std::int16_t>& sum)
{
    sum.clear();
    if (std::none_of(lines_.begin(), lines_.end(), [](const auto& line) { return line.second.started; }))
    {
        running_ = false;
        return;
    }
    if (!running_ || nowNs - dueNs_ > breakMs * nsPerMs)
    {
        running_ = true;
        dueNs_ = nowNs;
        return;
    }
    const std::int64_t frames = (nowNs - dueNs_) * format_.sampleRate / nsPerSecond;
    dueNs_ += frames * nsPerSecond / format_.sampleRate;
    sum.assign(static_cast<std::size_t>(frames * format_.channels), 0);
    for (auto& [sender, line] : lines_)
    {
        if (!line.started)
        {
            continue;
        }
        const std::size_t count = std::min(sum.size(), line.samples.size());
        for (std::size_t i = 0; i < count; ++i)
        {
            sum[i] = saturated(sum[i] + line.samples[i]);
        }
        line.samples.erase(line.samples.begin(), line.samples.begin() + static_cast<std::ptrdiff_t>(count));
        // It ran dry: it comes in again when it is ahead again.
        line.started = count == sum.size();
    }
}

}  // namespace refhost
