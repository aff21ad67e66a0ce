#include "refhost/export/ExportPlan.h"

#include <sys/stat.h>

#include <algorithm>
#include <utility>

#include "refhost/base/Log.h"
#include "refhost/playback/SegmentFile.h"

namespace refhost
{
namespace
{

using Milliseconds = ExportTrack::Milliseconds;

/// Segments of one query of the index.
constexpr int maxFound = 16;
/// Max deviation of a file's times from its entry in the index. An open one has no end there.
constexpr Duration maxDeviation = std::chrono::seconds(5);
constexpr Duration maxOpenLength = std::chrono::hours(24);
/// Audio in front of the interval, for decoders that need what comes before.
constexpr Milliseconds audioLead = 1000;
/// Frames that are decoded late: one behind the interval's end may be needed by one within.
constexpr Milliseconds maxReordering = 1000;

Milliseconds inMilliseconds(Duration span)
{
    return static_cast<Milliseconds>(std::chrono::round<std::chrono::milliseconds>(span).count());
}

}  // namespace

ExportPlan::Problem ExportPlan::make(const RecordingDirectory& directory, const Request& request,
                                     std::string& error)
{
    request_ = request;
    if (request.end <= request.begin)
    {
        error = "the interval is empty: its end must be later than its start";
        return Problem::interval;
    }
    // In this form it cannot overflow.
    if (request.begin < request.end - maxLength)
    {
        error = "the interval is longer than 24 hours: export it in parts";
        return Problem::interval;
    }
    end_ = std::max(inMilliseconds(request.end - request.begin), 1);
    const std::optional<int> stream = request.streamId
                                          ? request.streamId
                                          : directory.streamOf(request.cameraId, request.begin, request.end);
    const Problem problem = stream ? readSegments(directory, *stream, error) : Problem::none;
    if (problem != Problem::none)
    {
        return problem;
    }
    if (!video_.isWithin(end_) && !audio_.isWithin(end_))
    {
        const bool complete = directory.isComplete();
        error = complete ? "nothing was recorded in the interval"
                         : "the index of the recordings is being repaired or cannot be read now";
        return complete ? Problem::nothing : Problem::notReady;
    }
    for (ExportTrack* const track : {&video_, &audio_})
    {
        if (!track->isWithin(end_))
        {
            track->clear();
        }
    }
    // A file does not say how long its last frame is displayed; the index does.
    video_.finish(end_, nextFrame_.value_or(recordedEnd_));
    audio_.finish(end_, recordedEnd_);
    return Problem::none;
}

ExportPlan::Problem ExportPlan::readSegments(const RecordingDirectory& directory, int streamId,
                                             std::string& error)
{
    SegmentPlace after;
    for (;;)
    {
        const std::vector<RecordedSegment> found =
            directory.find(request_.cameraId, streamId, request_.begin, request_.end, maxFound, after);
        if (found.empty())
        {
            return Problem::none;
        }
        for (const RecordedSegment& segment : found)
        {
            after = {segment.epoch, segment.begin};
            if (!readSegment(segment))
            {
                error = "the interval holds more than " + std::to_string(maxSamples) +
                        " frames and blocks of audio: export it in parts";
                return Problem::tooLarge;
            }
        }
    }
}

/// \returns false when there is too much
bool ExportPlan::readSegment(const RecordedSegment& segment)
{
    std::string error;
    const auto table = SegmentTable::open(segment.path, error);
    Reading reading;
    if (!table)
    {
        SegmentFile::reportLeftOut(segment.path, error);
        ++leftOut_;
        waitsForKey_ = true;
        return true;
    }
    return !enter(segment, *table, reading) || addUnits(segment, *table, reading);
}

/// \returns false for a segment that is left out
bool ExportPlan::enter(const RecordedSegment& segment, SegmentTable& table, Reading& reading)
{
    for (const bool video : {true, false})
    {
        if (const auto& format = table.format(video))
        {
            (video ? reading.video : reading.audio) = track(video).describe(format);
        }
    }
    struct stat status
    {
    };
    if ((!reading.video && !reading.audio) || ::stat(segment.path.c_str(), &status) != 0)
    {
        Log::warning("recording {} is not exported: it has another codec than those before it", segment.path);
        ++leftOut_;
        waitsForKey_ = true;
        return false;
    }
    reading.number = static_cast<std::uint32_t>(segments_.size());
    reading.videoDone = !reading.video;
    reading.audioDone = !reading.audio;
    segments_.push_back({segment.path, status.st_dev, status.st_ino});
    return true;
}

bool ExportPlan::addUnits(const RecordedSegment& segment, SegmentTable& table, Reading& reading)
{
    const Duration length = (segment.closed ? segment.duration : maxOpenLength) + maxDeviation;
    SegmentTable::Sample sample;
    bool reported = false;
    while (!reading.videoDone || !reading.audioDone)
    {
        const SegmentTable::Result result = table.next(sample);
        if (result == SegmentTable::Result::end)
        {
            break;
        }
        std::optional<Milliseconds> time;
        if (result == SegmentTable::Result::sample && sample.offset >= -maxDeviation &&
            sample.offset <= length)
        {
            time = timeOf(segment, sample.offset);
        }
        if (!time)
        {
            // Frames behind a lost one cannot be decoded.
            waitsForKey_ = waitsForKey_ || sample.video || result == SegmentTable::Result::corrupt;
            if (!std::exchange(reported, true))
            {
                Log::warning("recording {} is corrupt; some of it is not exported", segment.path);
            }
            continue;
        }
        sample.video ? addFrame(sample, *time, reading) : addBlock(sample, *time, reading);
        if (video_.count() + audio_.count() > maxSamples)
        {
            return false;
        }
    }
    recordedEnd_ = timeOf(segment, segment.duration).value_or(recordedEnd_);
    return true;
}

/// \returns nothing beyond what an export can hold
std::optional<Milliseconds> ExportPlan::timeOf(const RecordedSegment& segment, Duration offset) const
{
    constexpr Duration max = std::chrono::hours(24 * 20);
    const Duration begin = segment.begin - request_.begin;
    return begin > -max && begin < max ? std::optional<Milliseconds>(inMilliseconds(begin + offset))
                                       : std::nullopt;
}

void ExportPlan::addFrame(const SegmentTable::Sample& sample, Milliseconds time, Reading& reading)
{
    if (reading.videoDone)
    {
        return;
    }
    if (reading.fresh)
    {
        // Frames of an overlap are there already.
        if (!sample.key || (lastFrame_ && time <= *lastFrame_))
        {
            return;
        }
        reading.fresh = false;
        const bool contiguous =
            lastFrame_ && time - *lastFrame_ <= inMilliseconds(RecordingIndex::maxContiguousGap);
        waitsForKey_ = waitsForKey_ || !contiguous;
    }
    if (sample.key && (waitsForKey_ || time <= 0))
    {
        waitsForKey_ = false;
        start_ = time;
    }
    // Frames that lead the first key frame need those in front of it.
    if (waitsForKey_ || time < start_)
    {
        return;
    }
    if (time >= end_)
    {
        nextFrame_ = std::min(nextFrame_.value_or(time), time);
    }
    if (time > end_ + maxReordering || (sample.key && time >= end_))
    {
        reading.videoDone = true;
        return;
    }
    if (sample.key && time <= 0)
    {
        video_.clear();
    }
    lastFrame_ = std::max(lastFrame_.value_or(time), time);
    video_.add(sample, time, reading.number, *reading.video);
}

void ExportPlan::addBlock(const SegmentTable::Sample& sample, Milliseconds time, Reading& reading)
{
    if (reading.audioDone || time < -audioLead || (lastBlock_ && time <= *lastBlock_))
    {
        return;
    }
    if (time >= end_)
    {
        reading.audioDone = true;
        return;
    }
    lastBlock_ = time;
    audio_.add(sample, time, reading.number, *reading.audio);
}

}  // namespace refhost
