#include "refhost/talkback/TalkMixer.h"

#include <algorithm>
#include <limits>

namespace refhost
{
namespace
{

/// How far a sender's audio is ahead when it joins the sum.
constexpr std::chrono::milliseconds lead(60);
/// How much more than the lead may wait before it is cut back.
constexpr std::chrono::milliseconds maxExcess(30);
/// Most of one sender's audio that waits at any time.
constexpr std::chrono::milliseconds maxWaiting(200);
/// After a longer break the sum goes on from now instead of catching up.
constexpr std::chrono::milliseconds maxBreak(100);

std::int16_t saturated(std::int32_t sum)
{
    using Limits = std::numeric_limits<std::int16_t>;
    return static_cast<std::int16_t>(std::clamp<std::int32_t>(sum, Limits::min(), Limits::max()));
}

}  // namespace

TalkMixer::TalkMixer(const PcmFormat& format) : format_(format) {}

std::size_t TalkMixer::samplesOf(std::chrono::milliseconds span) const
{
    return format_.frames(span) * static_cast<std::size_t>(format_.channels);
}

void TalkMixer::add(TalkSender sender, const std::vector<std::int16_t>& samples)
{
    Line& line = lines_[sender];
    // Otherwise the delay after a burst of packets would last.
    if (line.samples.size() > samplesOf(lead + maxExcess))
    {
        line.keepLast(samplesOf(lead));
    }
    line.samples.insert(line.samples.end(), samples.begin(), samples.end());
    line.keepLast(samplesOf(maxWaiting));
    line.started = line.started || line.samples.size() >= samplesOf(lead);
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

void TalkMixer::take(MonotonicTime now, std::vector<std::int16_t>& sum)
{
    sum.clear();
    if (std::none_of(lines_.begin(), lines_.end(), [](const auto& line) { return line.second.started; }))
    {
        running_ = false;
        return;
    }
    if (!running_ || now - due_ > maxBreak)
    {
        running_ = true;
        due_ = now;
        return;
    }
    const std::int64_t frames = format_.clock().ticks(now - due_);
    due_ += format_.clock().span(frames);
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
        // It ran dry: it joins again with its lead.
        line.started = count == sum.size();
    }
}

}  // namespace refhost
