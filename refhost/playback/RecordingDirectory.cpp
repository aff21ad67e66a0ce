#include "refhost/playback/RecordingDirectory.h"

#include <utility>

namespace refhost
{

IndexedRecordings::IndexedRecordings(std::shared_ptr<const RecordingIndex> index) : index_(std::move(index))
{
}

std::optional<int> IndexedRecordings::streamOf(int cameraId, std::int64_t beginNs, std::int64_t endNs) const
{
    return index_->streamOf(cameraId, beginNs, endNs);
}

bool IndexedRecordings::isComplete() const
{
    return index_->isComplete();
}

std::vector<RecordedSegment> IndexedRecordings::find(int cameraId, int streamId, std::int64_t beginNs,
                                                     std::int64_t endNs, int max,
                                                     const SegmentPlace& after) const
{
    return index_->find(cameraId, streamId, beginNs, endNs, max, after);
}

}  // namespace refhost
