#include "refhost/playback/ReverseReader.h"

#include <algorithm>
#include <utility>

#include "refhost/base/Log.h"
#include "refhost/recording/RecordingIndex.h"

namespace refhost
{
namespace
{

constexpr std::int64_t second = 1'000'000'000;
constexpr std::int64_t millisecond = 1'000'000;  // files have no finer times
/// How much of the past one question to the index is about; twice as much as before where nothing was
/// recorded.
constexpr std::int64_t firstSpanNs = 60 * second;
/// Segments that one answer may have, of which each is a second or longer.
constexpr int maxFound = 256;
/// Distances are kept give or take what capture times are off.
constexpr std::int64_t toleranceNs = 20 * millisecond;

}  // namespace

ReverseReader::ReverseReader(std::shared_ptr<const RecordingDirectory> directory, const Request& request)
    : directory_(std::move(directory)),
      request_(request),
      soughtToNs_(request.fromNs + 1),
      latestNs_(request.fromNs)
{
}

ReverseReader::~ReverseReader() = default;

ReverseReader::Result ReverseReader::read(CodedUnit& out)
{
    for (;;)
    {
        if (!file_ && !openNext())
        {
            return Result::end;
        }
        if (!readBefore(out))
        {
            file_.reset();
            continue;
        }
        latestNs_ = out.timeNs - millisecond;
        if (out.timeNs < request_.endNs)
        {
            return Result::end;
        }
        if (!lastNs_ || *lastNs_ - out.timeNs >= request_.keyDistanceNs - toleranceNs)
        {
            lastNs_ = out.timeNs;
            return Result::unit;
        }
    }
}

/// The last key frame of the open segment up to where reading stands.
bool ReverseReader::readBefore(CodedUnit& out)
{
    const std::int64_t latestNs = latestNs_ - segment_->beginNs;
    if (latestNs < 0 || !file_->seek(latestNs))
    {
        return false;
    }
    while (file_->read(out) == SegmentFile::Result::unit)
    {
        if (out.video && out.timeNs > latestNs)
        {
            break;
        }
        if (out.video && out.key)
        {
            out.timeNs += segment_->beginNs;
            return true;
        }
    }
    return false;
}

bool ReverseReader::openNext()
{
    RecordedSegment segment;
    while (nextSegment(segment))
    {
        std::string error;
        file_ = SegmentFile::open(segment.path, error);
        if (!file_)
        {
            SegmentFile::reportLeftOut(segment.path, error);
            continue;
        }
        if (file_->video() == nullptr || file_->video()->codec != request_.video)
        {
            Log::info("recording {} is left out: its codec is another one", segment.path);
            file_.reset();
            continue;
        }
        const std::int64_t endNs = segment.beginNs + segment.durationNs;
        if (segment_ && segment_->beginNs - endNs > RecordingIndex::seamNs)
        {
            ++section_;
        }
        segment_ = std::move(segment);
        return true;
    }
    return false;
}

bool ReverseReader::nextSegment(RecordedSegment& out)
{
    if (found_.empty())
    {
        findBefore();
    }
    if (found_.empty())
    {
        return false;
    }
    out = std::move(found_.front());
    found_.pop_front();
    return true;
}

/// Finds segments that begin before those known. One that started much earlier is found for its end.
void ReverseReader::findBefore()
{
    std::int64_t spanNs = firstSpanNs;
    while (found_.empty() && soughtToNs_ > request_.endNs)
    {
        const std::int64_t fromNs = std::max(soughtToNs_ - spanNs, request_.endNs);
        auto segments = directory_->find(request_.cameraId, request_.streamId, fromNs, soughtToNs_, maxFound,
                                         SegmentPlace());
        // By the clock alone, also where it was set back.
        std::stable_sort(segments.begin(), segments.end(),
                         [](const RecordedSegment& a, const RecordedSegment& b)
                         { return a.beginNs < b.beginNs; });
        if (segments.size() == maxFound && spanNs > second)
        {
            spanNs /= 2;
            continue;
        }
        for (RecordedSegment& segment : segments)
        {
            if (!segment_ || segment.beginNs < segment_->beginNs)
            {
                found_.push_front(std::move(segment));
            }
        }
        soughtToNs_ = fromNs;
        spanNs *= 2;
    }
}

}  // namespace refhost
