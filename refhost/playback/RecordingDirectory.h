#pragma once
// Tested by tests/refhost/playback/PlaybackCatalog_test.cpp.

#include <memory>
#include <optional>
#include <vector>

#include "refhost/base/Times.h"
#include "refhost/recording/RecordedSegment.h"
#include "refhost/recording/RecordingIndex.h"

namespace refhost
{

/// Finds segments for playback. May read from a disk. Threads: any.
class RecordingDirectory
{
public:
    virtual ~RecordingDirectory() = default;

    /// The camera's stream that is played in an interval: the lowest with recorded media there.
    virtual std::optional<int> streamOf(int cameraId, WallTime begin, WallTime end) const = 0;

    /// Whether everything on the disk can be found: false while the index is rebuilt or cannot be read.
    virtual bool isComplete() const
    {
        return true;
    }

    /// Segments of a stream with recorded media in [begin, end), closed and open ones, by epoch and begin.
    /// \param max    max. number of segments
    /// \param after  only segments after this place
    virtual std::vector<RecordedSegment> find(int cameraId, int streamId, WallTime begin, WallTime end,
                                              int max, const SegmentPlace& after) const = 0;
};

/// The segments of a RecordingIndex.
class IndexedRecordings : public RecordingDirectory
{
public:
    explicit IndexedRecordings(std::shared_ptr<const RecordingIndex> index);

    std::optional<int> streamOf(int cameraId, WallTime begin, WallTime end) const override;
    bool isComplete() const override;
    std::vector<RecordedSegment> find(int cameraId, int streamId, WallTime begin, WallTime end, int max,
                                      const SegmentPlace& after) const override;

private:
    const std::shared_ptr<const RecordingIndex> index_;
};

}  // namespace refhost
