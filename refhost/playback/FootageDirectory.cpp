#include "refhost/playback/FootageDirectory.h"

#include <utility>

namespace refhost
{

IndexedFootage::IndexedFootage(std::shared_ptr<const RecordingIndex> index) : index_(std::move(index)) {}

std::optional<int> IndexedFootage::streamOf(int cameraId, std::int64_t beginNs, std::int64_t endNs) const
{
    const std::vector<RecordedSegment> found = index_->find(cameraId, beginNs, endNs);
    return found.empty() ? std::nullopt : std::optional<int>(found.front().streamId);
}

std::vector<RecordedSegment> IndexedFootage::find(int cameraId, int streamId, std::int64_t beginNs,
                                                  std::int64_t endNs) const
{
    return index_->find(cameraId, streamId, beginNs, endNs);
}

}  // namespace refhost
