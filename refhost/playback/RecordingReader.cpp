#include "refhost/playback/RecordingReader.h"

#include <algorithm>
#include <filesystem>
#include <utility>

#include "refhost/base/Log.h"

namespace refhost
{
namespace
{

/// Duration of a frame where it is unknown.
constexpr Duration usualFrame = std::chrono::milliseconds(40);
/// Max. segments of one query of the index.
constexpr int maxFound = 16;
/// Max. consecutive waits for media that are being written; then the recording counts as ended.
constexpr int maxWaits = 30;
/// Max. age of the last segment's end while the next segment is still expected.
constexpr Duration maxBoundaryWait = std::chrono::seconds(10);
/// A pause inside a segment that starts a new range.
constexpr Duration minPause = std::chrono::seconds(10);
/// Max. deviation of a file's times from its entry in the index.
constexpr Duration maxDeviation = std::chrono::seconds(5);

}  // namespace

std::optional<WallTime> RecordingReader::startOf(std::shared_ptr<const RecordingDirectory> directory,
                                                 const HostClock& clock, const Request& request)
{
    RecordingReader reader(std::move(directory), clock, request);
    CodedUnit first;
    if (reader.read(first) != Result::unit || first.date >= request.end)
    {
        return std::nullopt;
    }
    return first.date;
}

RecordingReader::RecordingReader(std::shared_ptr<const RecordingDirectory> directory, const HostClock& clock,
                                 const Request& request)
    : directory_(std::move(directory)), clock_(clock), request_(request)
{
}

RecordingReader::~RecordingReader() = default;

RecordingReader::Result RecordingReader::read(CodedUnit& out)
{
    for (;;)
    {
        if (!file_)
        {
            const Opened opened = openNext();
            if (opened != Opened::yes)
            {
                return opened == Opened::later && ++waits_ < maxWaits ? Result::later : Result::end;
            }
        }
        const SegmentFile::Result result = file_->read(out);
        if (result == SegmentFile::Result::unit)
        {
            if (isOutOfSequence(out))
            {
                skipCorruption(out);
                continue;
            }
            out.date = segment_->begin + out.offset;
            if (isBehindEpoch(out))
            {
                continue;
            }
            if (accepts(out))
            {
                waits_ = 0;
                return Result::unit;
            }
            continue;
        }
        if (result == SegmentFile::Result::corrupt)
        {
            Log::warning("recording {} is corrupt; the rest of it is skipped", segment_->path);
        }
        else if (!segment_->closed)
        {
            if (reopenGrown())
            {
                continue;
            }
            if (mayGrow())
            {
                return Result::later;
            }
        }
        file_.reset();
    }
}

/// Whether corruption moved a unit to a time outside the segment: the units after it would count as played.
bool RecordingReader::isOutOfSequence(const CodedUnit& unit) const
{
    const Duration grown = segment_->closed ? Duration::zero() : clock_.wallNow() - segment_->begin;
    return unit.offset < -maxDeviation || unit.offset > std::max(segment_->duration, grown) + maxDeviation;
}

/// Starts a new range: frames after a lost one cannot be decoded.
void RecordingReader::skipCorruption(const CodedUnit& unit)
{
    if (isLead(unit) && !waitsForKey_)
    {
        Log::warning("recording {} is corrupt; some of it is skipped", segment_->path);
        startRange();
    }
}

RecordingReader::Opened RecordingReader::openNext()
{
    RecordedSegment segment;
    while (nextSegment(segment))
    {
        if (segment_ && segment.epoch != segment_->epoch)
        {
            startEpoch();
        }
        const Opened opened = openSegment(segment, request_.from);
        if (opened == Opened::later)
        {
            found_.push_front(std::move(segment));
        }
        if (opened != Opened::none)
        {
            return opened;
        }
    }
    const bool mayFollow = end_ && *end_ < request_.end && clock_.wallNow() - *end_ < maxBoundaryWait;
    return mayFollow ? Opened::later : Opened::none;
}

/// A segment is in the index before its file can be read.
bool RecordingReader::isJustStarted(const RecordedSegment& segment) const
{
    const Duration age = clock_.wallNow() - segment.begin;
    return !segment.closed && age >= Duration::zero() && age < maxBoundaryWait;
}

/// The next segment by epoch and begin; none twice, however they overlap.
bool RecordingReader::nextSegment(RecordedSegment& out)
{
    if (found_.empty())
    {
        const SegmentPlace after = segment_ ? SegmentPlace{segment_->epoch, segment_->begin} : SegmentPlace();
        for (RecordedSegment& segment : directory_->find(request_.cameraId, request_.streamId, request_.from,
                                                         request_.end, maxFound, after))
        {
            found_.push_back(std::move(segment));
        }
    }
    if (found_.empty())
    {
        return false;
    }
    out = std::move(found_.front());
    found_.pop_front();
    return true;
}

/// \param grown  the file as it was opened before; null for another segment
RecordingReader::Opened RecordingReader::openSegment(const RecordedSegment& segment, WallTime from,
                                                     const SegmentFile* grown)
{
    segment_ = segment;
    const bool reachesEnd = !segment.closed || segment.end() > request_.end;
    const SegmentPlace endOfEpoch{segment.epoch, WallTime::max()};
    epochFollows_ =
        reachesEnd &&
        !directory_->find(request_.cameraId, request_.streamId, request_.from, request_.end, 1, endOfEpoch)
             .empty();
    if (!segment.closed)
    {
        std::error_code failure;
        segment_->bytes = static_cast<std::int64_t>(std::filesystem::file_size(segment.path, failure));
    }
    std::string error;
    file_ = grown ? grown->again(error) : SegmentFile::open(segment.path, error);
    if (!file_)
    {
        if (isJustStarted(segment))
        {
            return Opened::later;
        }
        SegmentFile::reportLeftOut(segment.path, error);
        return Opened::none;
    }
    if (!fits(*file_))
    {
        Log::info("recording {} is skipped: it has another codec", segment.path);
        file_.reset();
        return Opened::none;
    }
    if (from > segment.begin && !file_->seek(from - segment.begin))
    {
        Log::warning("recording {} is corrupt; it is skipped", segment.path);
        file_.reset();
        return Opened::none;
    }
    fresh_ = true;
    resuming_ = false;
    return Opened::yes;
}

bool RecordingReader::fits(const SegmentFile& file) const
{
    const auto has = [](const FileTrack* track, const std::optional<Codec>& codec)
    { return codec && track != nullptr && track->codec() == *codec; };
    const bool video = has(file.video(), request_.video);
    const bool audio = has(file.audio(), request_.audio);
    return request_.video ? video : audio;
}

/// At the end of an open segment: opens it again for what was written since.
bool RecordingReader::reopenGrown()
{
    const WallTime begin = segment_->begin;
    for (RecordedSegment& now :
         directory_->find(request_.cameraId, request_.streamId, begin, begin + std::chrono::seconds(1),
                          maxFound, SegmentPlace{segment_->epoch, begin - Duration(1)}))
    {
        std::error_code failure;
        const auto size = static_cast<std::int64_t>(std::filesystem::file_size(now.path, failure));
        if (now.id != segment_->id || failure)
        {
            continue;
        }
        const bool grown = now.closed || size > segment_->bytes;
        if (!grown)
        {
            return false;
        }
        const auto before = std::move(file_);
        if (openSegment(now, std::max(lastFrame_, lastAudio_) - usualFrame, before.get()) != Opened::yes)
        {
            return false;
        }
        fresh_ = false;
        resuming_ = true;
        return true;
    }
    return false;
}

bool RecordingReader::mayGrow()
{
    return (!end_ || *end_ < request_.end) && ++waits_ < maxWaits;
}

/// Whether a unit is played, in view of the units before it.
bool RecordingReader::accepts(const CodedUnit& unit)
{
    if (!isRequested(unit) || !follows(unit))
    {
        return false;
    }
    if (end_ && unit.date - *end_ > minPause)
    {
        startRange();
    }
    const WallTime end = unit.date + (unit.duration > Duration::zero() ? unit.duration : usualFrame);
    end_ = end_ ? std::max(*end_, end) : end;
    (unit.video ? lastFrame_ : lastAudio_) = unit.date;
    if (waitsForKey_)
    {
        if (!isLead(unit) || !unit.key)
        {
            return false;
        }
        waitsForKey_ = false;
        start_ = unit.date;
    }
    // Leading frames reference frames before the key frame.
    if (unit.date < start_)
    {
        return false;
    }
    return !unit.video || !request_.keyFramesOnly || (unit.key && keepsDistance(unit));
}

/// Whether a key frame is far enough from the last one, with a tolerance for jitter of capture times.
bool RecordingReader::keepsDistance(const CodedUnit& unit)
{
    if (lastKey_ && unit.date - *lastKey_ < request_.keyDistance - usualFrame / 2)
    {
        return false;
    }
    lastKey_ = unit.date;
    return true;
}

bool RecordingReader::isRequested(const CodedUnit& unit) const
{
    const std::optional<Codec>& codec = unit.video ? request_.video : request_.audio;
    return codec && track(unit.video).codec() == *codec;
}

/// Rejects units that were played: of a segment that is read again, or that overlaps the one before.
bool RecordingReader::follows(const CodedUnit& unit)
{
    if (!unit.video && unit.date <= lastAudio_)
    {
        return false;
    }
    if (resuming_ && isLead(unit))
    {
        const bool beyond = unit.key && unit.date > lastFrame_;
        resuming_ = !beyond && unit.date != lastFrame_ && unit.video;
        return beyond || !unit.video;
    }
    fresh_ = fresh_ && end_;
    if (!fresh_)
    {
        return true;
    }
    if (unit.date - *end_ > RecordingIndex::maxContiguousGap)
    {
        fresh_ = false;
        startRange();
        return true;
    }
    if (!isLead(unit))
    {
        return true;
    }
    fresh_ = unit.video && (!unit.key || unit.date <= lastFrame_);
    return !fresh_;
}

/// The clock was set back: the next units are dated earlier.
void RecordingReader::startEpoch()
{
    startRange();
    lastFrame_ = {};
    lastAudio_ = {};
    lastKey_.reset();
}

/// Whether a unit is after the interval's end while a later epoch has more of the interval. Ends the file
/// where reordered frames of the interval cannot follow any more.
bool RecordingReader::isBehindEpoch(const CodedUnit& unit)
{
    if (!epochFollows_ || unit.date < request_.end)
    {
        return false;
    }
    if (unit.date > request_.end + std::chrono::seconds(1))
    {
        file_.reset();
    }
    return true;
}

void RecordingReader::startRange()
{
    ++range_;
    waitsForKey_ = true;
    end_.reset();
}

}  // namespace refhost
