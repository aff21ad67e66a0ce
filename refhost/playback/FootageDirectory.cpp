#include "refhost/playback/FootageDirectory.h"

#include <utility>

namespace refhost
{

IndexedFootage::IndexedFootage(std::shared_ptr<const RecordingIndex> index) : index_(std::move(index)) {}

std::optional<int> IndexedFootage::streamOf(int cameraId, std::int64_t beginNs, std::int64_t endNs) const
{
    return index_->streamOf(cameraId, beginNs, endNs);
}

bool IndexedFootage::isComplete() const
{
    return index_->isComplete();
}

std::vector<RecordedSegment> IndexedFootage::find(int cameraId, int streamId, std::int64_t beginNs,
                                                  std::int64_t endNs, int most,
                                                  const SegmentPlace& after) const
{
    return index_->find(cameraId, streamId, beginNs, endNs, most, after);
}

}  // namespace refhost
