#include "refhost/export/RecordedFragments.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include "refhost/fragments/FragmentWriter.h"
#include "refhost/media/ReorderDepth.h"
#include "refhost/playback/RecordingReader.h"
#include "refhost/playback/ReverseReader.h"
#include "refhost/rtp/payload/AudioConfig.h"

namespace refhost
{
namespace
{

using namespace std::chrono_literals;

/// The timeline begins in front of the first frame, whose decode time may be earlier.
constexpr Duration lead = 10s;
/// From the end of what was read to a range that is dated earlier.
constexpr Duration setBackDistance = 1s;
constexpr Duration usualStep = 40ms;
/// Max. duration of a frame: of key frames that are far from each other.
constexpr Duration maxStep = 60s;
/// Reordered frames follow the first one behind the end within this time.
constexpr Duration maxReordering = 1s;
/// Recorded times are of milliseconds: audio that deviates by no more is contiguous.
constexpr Duration maxDrift = 5ms;
constexpr int maxFound = 16;
/// Years that texts of instants have.
constexpr WallTime earliest = wallTimeOfUnix(0);
constexpr WallTime latest = wallTimeOfUnix(7'258'118'400);

bool isUsable(const FileTrack* track)
{
    return track != nullptr && FragmentWriter::canHold(*track->format);
}

/// Of a block of audio by its samples; 0 when the codec does not say.
Duration audioLength(const MediaFormat& format, const CodedUnit& unit)
{
    if (unit.bytes.empty() || format.sampleRate <= 0)
    {
        return {};
    }
    std::uint32_t samples =
        infoOf(format.codec).samplesIn(unit.bytes.data(), unit.bytes.size(), std::max(format.channels, 1));
    if (format.codec == Codec::aac)
    {
        const auto config = AudioConfig::read(format.codecData);
        samples = config ? config->frameSamples : samples;
    }
    return Duration(std::int64_t{samples} * nanosecondsPerSecond / format.sampleRate);
}

}  // namespace

RecordedFragments::RecordedFragments(std::shared_ptr<const RecordingDirectory> directory,
                                     const HostClock& clock, const Request& request)
    : directory_(std::move(directory)),
      clock_(clock),
      request_(request),
      end_(request.end.value_or(request.backwards ? earliest : latest))
{
}

RecordedFragments::~RecordedFragments() = default;

RecordedFragments::Next RecordedFragments::next()
{
    while (ready_.empty())
    {
        if (ended_ || (reader_ == nullptr && !open()))
        {
            ended_ = true;
            return {};
        }
        CodedUnit unit;
        switch (reader_->read(unit))
        {
            case UnitReader::Result::unit:
                take(unit);
                break;
            case UnitReader::Result::later:
            {
                Next none;
                none.kind = Next::Kind::later;
                return none;
            }
            case UnitReader::Result::end:
                flush();
                ended_ = true;
                break;
        }
    }
    Next next = std::move(ready_.front());
    ready_.pop_front();
    return next;
}

bool RecordedFragments::open()
{
    const auto file = firstFile();
    if (file == nullptr)
    {
        return false;
    }
    const bool keysOnly = request_.backwards || request_.keyFramesOnly;
    const FileTrack* const video = isUsable(file->video()) ? file->video() : nullptr;
    const FileTrack* const audio =
        request_.audio && !keysOnly && isUsable(file->audio()) ? file->audio() : nullptr;
    if ((video == nullptr && audio == nullptr) || (keysOnly && video == nullptr))
    {
        return false;
    }
    video_.format = video == nullptr ? nullptr : video->format;
    audio_.format = audio == nullptr ? nullptr : audio->format;
    if (request_.backwards)
    {
        reader_ = std::make_unique<ReverseReader>(
            directory_, ReverseReader::Request{request_.cameraId, request_.streamId, request_.start, end_,
                                               request_.keyDistance, video->codec()});
        return true;
    }
    RecordingReader::Request request;
    request.cameraId = request_.cameraId;
    request.streamId = request_.streamId;
    request.from = request_.start;
    request.end = end_;
    request.keyFramesOnly = request_.keyFramesOnly;
    request.keyDistance = request_.keyDistance;
    request.video = video == nullptr ? std::nullopt : std::optional<Codec>(video->codec());
    request.audio = audio == nullptr ? std::nullopt : std::optional<Codec>(audio->codec());
    reader_ = std::make_unique<RecordingReader>(directory_, clock_, request);
    return true;
}

/// Which codecs there are: the first file that can be read says it.
std::unique_ptr<SegmentFile> RecordedFragments::firstFile() const
{
    for (const RecordedSegment& segment : firstSegments())
    {
        std::string error;
        auto file = SegmentFile::open(segment.path, error);
        if (file != nullptr && (isUsable(file->video()) || isUsable(file->audio())))
        {
            return file;
        }
    }
    return nullptr;
}

std::vector<RecordedSegment> RecordedFragments::firstSegments() const
{
    const auto find = [this](WallTime begin, WallTime end)
    { return directory_->find(request_.cameraId, request_.streamId, begin, end, maxFound, SegmentPlace()); };
    if (!request_.backwards)
    {
        return find(request_.start, end_);
    }
    const WallTime end = request_.start + Duration(1);
    for (const Duration span : {Duration(1min), Duration(1h), Duration(24h)})
    {
        std::vector<RecordedSegment> found = find(std::max(end - span, end_), end);
        if (!found.empty())
        {
            std::reverse(found.begin(), found.end());
            return found;
        }
    }
    return find(end_, end);
}

void RecordedFragments::take(CodedUnit& unit)
{
    if (isBehindEnd(unit))
    {
        return;
    }
    if (rangeNumber_ != reader_->range())
    {
        flush();
        const bool first = !rangeNumber_;
        rangeNumber_ = reader_->range();
        if (first)
        {
            addDescription();
        }
        startRange(unit.date);
    }
    Track& track = unit.video ? video_ : audio_;
    describe(unit, reader_->track(unit.video).format);
    const MonotonicTime presented = presentation(unit.date);
    const Duration length = unit.video ? unit.duration : audioLength(*track.format, unit);
    Held held;
    held.date = unit.date;
    held.unit.format = track.format;
    held.unit.captureTime = unit.video ? presented : alignedAudio(unit, presented, length);
    held.unit.decodeTime = unit.video ? decodeTime(unit, presented) : held.unit.captureTime;
    held.unit.duration = length;
    held.unit.keyFrame = unit.key;
    held.unit.bytes = std::move(unit.bytes);
    flush(track, held.unit.decodeTime);
    mediaEnd_ = std::max(mediaEnd_, held.unit.captureTime.time_since_epoch());
    track.held = std::move(held);
}

/// Ends the reading with the first key frame behind the end: frames in front of the end may need those behind it.
bool RecordedFragments::isBehindEnd(const CodedUnit& unit)
{
    if (request_.backwards || unit.date < end_)
    {
        return false;
    }
    const bool leads = unit.video == (video_.format != nullptr);
    if ((leads && unit.key) || unit.date > end_ + maxReordering)
    {
        flush();
        ended_ = true;
        return true;
    }
    return !unit.video;
}

void RecordedFragments::startRange(WallTime date)
{
    Range range{date, lead};
    if (sequence_ > 0)
    {
        range.media = presentation(date).time_since_epoch();
        if (range.media <= mediaEnd_)
        {
            // The clock was set back.
            range.media = mediaEnd_ + setBackDistance;
        }
    }
    range_ = range;
    mediaEnd_ = range.media;
    decodeTimes_.reset();
    if (video_.format != nullptr)
    {
        decodeTimes_.setDepth(
            request_.backwards || request_.keyFramesOnly ? 0 : ReorderDepth::of(*video_.format));
    }
    audio_.next.reset();
    audioUntil_ = date;
    Next next;
    next.kind = Next::Kind::range;
    next.range = range_;
    ready_.push_back(std::move(next));
}

/// Notes a unit's format, and that audio begins or is missing.
void RecordedFragments::describe(const CodedUnit& unit, const std::shared_ptr<const MediaFormat>& format)
{
    Track& track = unit.video ? video_ : audio_;
    bool changed = track.format == nullptr || !(*track.format == *format);
    if (!unit.video)
    {
        audioUntil_ = unit.date;
    }
    const bool silent = unit.video && audio_.format != nullptr && unit.date - *audioUntil_ > maxSilence;
    if (!changed && !silent)
    {
        return;
    }
    flush();
    track.format = changed ? format : track.format;
    if (silent)
    {
        audio_.format = nullptr;
        audio_.next.reset();
    }
    if (unit.video && changed && !request_.backwards && !request_.keyFramesOnly)
    {
        decodeTimes_.setDepth(ReorderDepth::of(*format));
    }
    addDescription();
}

void RecordedFragments::addDescription()
{
    Next next;
    next.kind = Next::Kind::description;
    next.video = video_.format;
    next.audio = audio_.format;
    ready_.push_back(std::move(next));
}

MonotonicTime RecordedFragments::presentation(WallTime date) const
{
    const Duration since = date - range_.date;
    return MonotonicTime(range_.media + (request_.backwards ? -since : since));
}

MonotonicTime RecordedFragments::decodeTime(const CodedUnit& unit, MonotonicTime presented)
{
    MonotonicTime decode = decodeTimes_.next(presented, unit.duration, unit.key);
    if (video_.last)
    {
        // Of parameter sets that promise less reordering than there is: browsers drop what goes back.
        decode = std::max(decode, *video_.last + Duration(1ms));
    }
    video_.last = decode;
    return decode;
}

/// Blocks follow one another by their own length, which is exact, as far as their recorded times agree.
MonotonicTime RecordedFragments::alignedAudio(const CodedUnit& unit, MonotonicTime presented, Duration length)
{
    MonotonicTime time = presented;
    if (audio_.next && time - *audio_.next <= maxDrift && *audio_.next - time <= maxDrift)
    {
        time = *audio_.next;
    }
    const Duration known = length > Duration::zero() ? length : unit.duration;
    audio_.next = known > Duration::zero() ? std::optional<MonotonicTime>(time + known) : std::nullopt;
    return time;
}

/// Makes a track's unit that is held a fragment.
/// \param next  decode time of the one behind it; nothing: not known
void RecordedFragments::flush(Track& track, std::optional<MonotonicTime> next)
{
    if (!track.held)
    {
        return;
    }
    const EncodedUnit& unit = track.held->unit;
    const Duration step = next ? *next - unit.decodeTime : Duration::zero();
    if (step > Duration::zero() && step <= maxStep)
    {
        track.step = step;
    }
    else if (track.step == Duration::zero())
    {
        track.step = unit.duration > Duration::zero() ? unit.duration : usualStep;
    }
    Next made;
    made.kind = Next::Kind::fragment;
    made.decode = unit.decodeTime.time_since_epoch();
    made.fragment = FragmentWriter::fragment(unit, {++sequence_, made.decode, track.step, track.held->date});
    track.held.reset();
    ready_.push_back(std::move(made));
}

void RecordedFragments::flush()
{
    flush(video_, std::nullopt);
    flush(audio_, std::nullopt);
}

}  // namespace refhost
