#include "refhost/playback/RecordingDirectory.h"

#include <utility>

namespace refhost
{

IndexedRecordings::IndexedRecordings(std::shared_ptr<const RecordingIndex> index) : index_(std::move(index))
{
}

std::optional<int> IndexedRecordings::streamOf(int cameraId, WallTime begin, WallTime end) const
{
    return index_->streamOf(cameraId, begin, end);
}

bool IndexedRecordings::isComplete() const
{
    return index_->isComplete();
}

std::vector<RecordedSegment> IndexedRecordings::find(int cameraId, int streamId, WallTime begin, WallTime end,
                                                     int max, const SegmentPlace& after) const
{
    return index_->find(cameraId, streamId, begin, end, max, after);
}

}  // namespace refhost
