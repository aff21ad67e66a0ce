#include "refhost/export/ExportTrack.h"

#include <algorithm>
#include <limits>

#include "refhost/media/Codec.h"
#include "refhost/rtp/payload/AudioConfig.h"

namespace refhost
{
namespace
{

constexpr unsigned sizeBits = 26;
constexpr std::uint64_t sizeMask = (std::uint64_t{1} << sizeBits) - 1;
constexpr std::int64_t perSecond = 1000;
/// A day's gap fits into 32 bits of ticks of this rate.
constexpr std::uint32_t maxTimescale = 48'000;

static_assert(SegmentTable::maxSampleBytes <= sizeMask + 1 &&
                  SegmentTable::maxFileBytes <= std::uint64_t{1} << (64 - sizeBits),
              "position and size share 64 bits");

}  // namespace

std::optional<std::uint32_t> ExportTrack::describe(const std::shared_ptr<const MediaFormat>& format)
{
    const auto known =
        std::find_if(formats_.begin(), formats_.end(), [&](const auto& other) { return *other == *format; });
    if (known != formats_.end())
    {
        return static_cast<std::uint32_t>(known - formats_.begin());
    }
    if (formats_.size() >= maxFormats ||
        (!formats_.empty() &&
         (formats_.front()->codec != format->codec || formats_.front()->sampleRate != format->sampleRate)))
    {
        return std::nullopt;
    }
    formats_.push_back(format);
    return static_cast<std::uint32_t>(formats_.size() - 1);
}

void ExportTrack::add(const SegmentTable::Sample& sample, Milliseconds time, std::uint32_t segment,
                      std::uint32_t description)
{
    if (runs_.empty() || runs_.back().segment != segment || runs_.back().description != description)
    {
        runs_.push_back({static_cast<std::uint32_t>(places_.size()), segment, description});
    }
    places_.push_back(sample.position << sizeBits | (sample.size & sizeMask));
    times_.push_back(time);
    keys_.push_back(sample.key);
    if (video_)
    {
        return;
    }
    const MediaFormat& format = *formats_[description];
    std::uint32_t length = infoOf(format.codec).samplesIn(sample.head.data(), sample.size, format.channels);
    if (format.codec == Codec::aac)
    {
        const auto config = AudioConfig::read(format.codecData);
        length = config ? config->frameSamples : length;
    }
    const auto rate = static_cast<std::uint32_t>(std::max(format.sampleRate, 1));
    length = static_cast<std::uint32_t>(std::uint64_t{length} * timescale() / rate);
    lengths_.push_back(length <= std::numeric_limits<std::uint16_t>::max()
                           ? static_cast<std::uint16_t>(length)
                           : std::uint16_t{0});
}

void ExportTrack::clear()
{
    places_.clear();
    times_.clear();
    keys_.clear();
    lengths_.clear();
    runs_.clear();
}

bool ExportTrack::isWithin(Milliseconds end) const
{
    return std::any_of(times_.begin(), times_.end(),
                       [end](Milliseconds time) { return time >= 0 && time < end; });
}

ExportTrack::Place ExportTrack::place(std::size_t sample) const
{
    return {places_[sample] >> sizeBits, static_cast<std::uint32_t>(places_[sample] & sizeMask)};
}

std::uint32_t ExportTrack::timescale() const
{
    if (video_)
    {
        return perSecond;
    }
    const auto rate = static_cast<std::uint32_t>(formats_.empty() ? 0 : formats_.front()->sampleRate);
    return std::max(rate > maxTimescale ? rate / 2 : rate, 1U);
}

std::int64_t ExportTrack::ticksOf(std::int64_t milliseconds) const
{
    return milliseconds * timescale() / perSecond;
}

ExportTrack::Milliseconds ExportTrack::lastDuration(Milliseconds last, Milliseconds next)
{
    constexpr Milliseconds usual = 40;
    constexpr Milliseconds max = 1000;
    return next > last && next <= last + max ? next - last : usual;
}

void ExportTrack::append(std::vector<Step>& steps, std::uint32_t ticks)
{
    if (steps.empty() || steps.back().ticks != ticks)
    {
        steps.push_back({0, ticks});
    }
    ++steps.back().count;
}

void ExportTrack::finish(Milliseconds end, Milliseconds next)
{
    while (!times_.empty() && times_.back() >= end)
    {
        places_.pop_back();
        times_.pop_back();
        keys_.pop_back();
        if (!video_)
        {
            lengths_.pop_back();
        }
    }
    while (!runs_.empty() && runs_.back().first >= places_.size())
    {
        runs_.pop_back();
    }
    if (!times_.empty())
    {
        video_ ? finishVideo(next) : finishAudio(next);
    }
}

/// Files hold no decode times: frames are decoded at the times of their presentation, in order.
void ExportTrack::finishVideo(Milliseconds next)
{
    if (!std::is_sorted(times_.begin(), times_.end()))
    {
        decode_ = times_;
        std::sort(decode_.begin(), decode_.end());
        for (std::size_t i = 0; i < times_.size(); ++i)
        {
            shift_ = std::max(shift_, decode_[i] - times_[i]);
        }
        for (std::size_t i = 0; i < times_.size(); ++i)
        {
            append(offsets_, static_cast<std::uint32_t>(times_[i] - decode_[i] + shift_));
        }
    }
    for (std::size_t i = 0; i + 1 < times_.size(); ++i)
    {
        append(durations_, static_cast<std::uint32_t>(decodeTime(i + 1) - decodeTime(i)));
    }
    first_ = std::numeric_limits<Milliseconds>::max();
    for (const Milliseconds time : times_)
    {
        first_ = time >= 0 ? std::min(first_, time) : first_;
    }
    firstTicks_ = std::int64_t{first_} - decodeTime(0);
    const Milliseconds last = decodeTime(times_.size() - 1);
    const Milliseconds rest = lastDuration(last, next);
    append(durations_, static_cast<std::uint32_t>(rest));
    length_ = static_cast<std::uint64_t>(std::int64_t{last} - decodeTime(0) + rest);
}

/// Blocks follow one another by their own length, which is exact; their recorded times are in milliseconds.
/// Where both differ by more than that, after a gap or by drift, the recorded time holds.
void ExportTrack::finishAudio(Milliseconds next)
{
    const std::int64_t tolerance = ticksOf(maxDrift);
    const std::int64_t first = ticksOf(times_.front());
    const std::int64_t unknown = ticksOf(lastDuration(times_.back(), next));
    std::int64_t now = first;
    for (std::size_t i = 0; i < times_.size(); ++i)
    {
        const std::int64_t length = lengths_[i];
        std::int64_t following = now + (length > 0 ? length : unknown);
        if (i + 1 < times_.size())
        {
            const std::int64_t recorded = ticksOf(times_[i + 1]);
            if (length == 0 || following > recorded + tolerance || following < recorded - tolerance)
            {
                following = std::max(recorded, now + 1);
            }
        }
        if (times_[i] >= 0 && first_ < 0)
        {
            first_ = static_cast<Milliseconds>(std::max<std::int64_t>(now * perSecond / timescale(), 0));
            firstTicks_ = now - first;
        }
        append(durations_, static_cast<std::uint32_t>(following - now));
        now = following;
    }
    length_ = static_cast<std::uint64_t>(now - first);
}

ExportTrack::Edit ExportTrack::edit(Milliseconds end) const
{
    if (times_.empty())
    {
        return {};
    }
    const std::int64_t origin = decodeTime(0);
    const std::int64_t mediaEnd =
        origin + static_cast<std::int64_t>(length_) * perSecond / static_cast<std::int64_t>(timescale());
    Edit edit;
    edit.lead = first_;
    edit.mediaTime = firstTicks_ + shift_;
    edit.length = std::min<std::int64_t>(end, mediaEnd) - edit.lead;
    return edit;
}

void ExportTrack::forgetTimes()
{
    std::vector<Milliseconds>().swap(times_);
    std::vector<Milliseconds>().swap(decode_);
    std::vector<bool>().swap(keys_);
    std::vector<std::uint16_t>().swap(lengths_);
    std::vector<Step>().swap(durations_);
    std::vector<Step>().swap(offsets_);
}

}  // namespace refhost
