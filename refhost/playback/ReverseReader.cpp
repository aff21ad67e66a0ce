#include "refhost/playback/ReverseReader.h"

#include <algorithm>
#include <utility>

#include "refhost/base/Log.h"
#include "refhost/recording/RecordingIndex.h"

namespace refhost
{
namespace
{

constexpr Duration resolution = std::chrono::milliseconds(1);  // files have no finer times
/// Interval of the first query of the index; doubled while nothing is found.
constexpr Duration firstSpan = std::chrono::minutes(1);
constexpr Duration minSpan = std::chrono::seconds(1);
/// Max. segments of one query; each lasts a second or longer.
constexpr int maxFound = 256;
/// Of distances, for jitter of capture times.
constexpr Duration tolerance = std::chrono::milliseconds(20);

}  // namespace

ReverseReader::ReverseReader(std::shared_ptr<const RecordingDirectory> directory, const Request& request)
    : directory_(std::move(directory)),
      request_(request),
      searchedTo_(request.from + Duration(1)),
      latest_(request.from)
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
        latest_ = out.date - resolution;
        if (out.date < request_.end)
        {
            return Result::end;
        }
        if (!last_ || *last_ - out.date >= request_.keyDistance - tolerance)
        {
            last_ = out.date;
            return Result::unit;
        }
    }
}

/// The last key frame of the open segment up to `latest_`.
bool ReverseReader::readBefore(CodedUnit& out)
{
    const Duration latest = latest_ - segment_->begin;
    if (latest < Duration::zero() || !file_->seek(latest))
    {
        return false;
    }
    while (file_->read(out) == SegmentFile::Result::unit)
    {
        if (out.video && out.offset > latest)
        {
            break;
        }
        if (out.video && out.key)
        {
            out.date = segment_->begin + out.offset;
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
        if (file_->video() == nullptr || file_->video()->codec() != request_.video)
        {
            Log::info("recording {} is skipped: it has another codec", segment.path);
            file_.reset();
            continue;
        }
        if (segment_ && segment_->begin - segment.end() > RecordingIndex::maxContiguousGap)
        {
            ++range_;
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

/// Finds the segments before those found so far, by their ends.
void ReverseReader::findBefore()
{
    Duration span = firstSpan;
    while (found_.empty() && searchedTo_ > request_.end)
    {
        const WallTime from = std::max(searchedTo_ - span, request_.end);
        auto segments = directory_->find(request_.cameraId, request_.streamId, from, searchedTo_, maxFound,
                                         SegmentPlace());
        // By date alone, also where the clock was set back.
        std::stable_sort(segments.begin(), segments.end(),
                         [](const RecordedSegment& a, const RecordedSegment& b)
                         { return a.begin < b.begin; });
        if (segments.size() == maxFound && span > minSpan)
        {
            span /= 2;
            continue;
        }
        for (RecordedSegment& segment : segments)
        {
            if (!segment_ || segment.begin < segment_->begin)
            {
                found_.push_front(std::move(segment));
            }
        }
        searchedTo_ = from;
        span *= 2;
    }
}

}  // namespace refhost
