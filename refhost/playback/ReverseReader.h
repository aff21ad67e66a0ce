#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <optional>

#include "refhost/base/Times.h"
#include "refhost/media/Codec.h"
#include "refhost/playback/RecordingDirectory.h"
#include "refhost/playback/SegmentFile.h"
#include "refhost/playback/UnitReader.h"

namespace refhost
{

/// Reads a camera's recorded key frames backwards, across segments and gaps.
///
/// Unreadable segments, and those of another codec, are skipped with a line in the log. Segments that grow
/// need no care: reading goes away from them. Reads from a disk. Threads: one at a time.
class ReverseReader : public UnitReader
{
public:
    struct Request
    {
        int cameraId = 0;
        int streamId = 0;
        WallTime from;           ///< the first key frame is the last one at or before it
        WallTime end;            ///< the last one is at or after it
        Duration keyDistance{};  ///< min. distance of key frames
        Codec video = Codec::h264;
    };

    ReverseReader(std::shared_ptr<const RecordingDirectory> directory, const Request& request);
    ~ReverseReader() override;

    /// Never returns `later`.
    Result read(CodedUnit& out) override;

    std::uint32_t range() const override
    {
        return range_;
    }

    const FileTrack& track(bool) const override
    {
        return *file_->video();
    }

private:
    bool openNext();
    bool nextSegment(RecordedSegment& out);
    void findBefore();
    bool readBefore(CodedUnit& out);

    const std::shared_ptr<const RecordingDirectory> directory_;
    const Request request_;
    std::deque<RecordedSegment> found_;  // the next ones, the latest first
    WallTime searchedTo_;                // segments that start here or later were found
    std::optional<RecordedSegment> segment_;
    std::unique_ptr<SegmentFile> file_;
    WallTime latest_;  // bound of the next key frame
    std::uint32_t range_ = 0;
    std::optional<WallTime> last_;  // the last key frame
};

}  // namespace refhost
