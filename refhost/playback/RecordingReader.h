#pragma once
// Tested by tests/refhost/playback/RecordedSource_test.cpp.

#include <cstdint>
#include <deque>
#include <memory>
#include <optional>

#include "refhost/base/HostClock.h"
#include "refhost/media/Codec.h"
#include "refhost/playback/RecordingDirectory.h"
#include "refhost/playback/SegmentFile.h"
#include "refhost/playback/UnitReader.h"

namespace refhost
{

/// Reads a camera's recorded media of an interval over the ends of segments and over gaps; times are wall clock,
/// nanoseconds since 1970.
///
/// Segments that cannot be read are left out with a line in the log. Threads: one at a time. Reads from a
/// disk.
class RecordingReader : public UnitReader
{
public:
    struct Request
    {
        int cameraId = 0;
        int streamId = 0;
        WallTime from;  ///< starts at the last key frame at or before it, or at what comes next
        WallTime end;   ///< nothing of a segment that starts here or later
        bool keyFramesOnly = false;
        Duration keyDistance{};      ///< how far these are apart at least
        std::optional<Codec> video;  ///< wanted in this codec
        std::optional<Codec> audio;
    };

    /// Date of the first unit that a reader of this request reads; nothing where it reads none.
    static std::optional<WallTime> startOf(std::shared_ptr<const RecordingDirectory> directory,
                                           const HostClock& clock, const Request& request);

    /// \param clock  outlives the reader
    RecordingReader(std::shared_ptr<const RecordingDirectory> directory, const HostClock& clock,
                    const Request& request);
    ~RecordingReader() override;

    /// The next unit in the order of decoding, with its wall clock. Where the clock was set back, what was
    /// recorded before comes first, up to the interval's end, and then what was recorded after, in a section
    /// of its own. Frames begin with a key frame at the begin and behind each gap, and audio with that
    /// frame.
    Result read(CodedUnit& out) override;

    /// Number of the contiguous section that the last unit belongs to.
    std::uint32_t range() const override
    {
        return range_;
    }

    /// What the last unit is.
    const SegmentFile::Track& track(bool video) const override
    {
        return video ? *file_->video() : *file_->audio();
    }

private:
    enum class Opened
    {
        yes,
        none,
        later
    };

    Opened openNext();
    Opened openSegment(const RecordedSegment& segment, WallTime from, const SegmentFile* grown = nullptr);
    bool isJustStarted(const RecordedSegment& segment) const;
    bool isOutOfSequence(const CodedUnit& unit) const;
    void skipCorruption(const CodedUnit& unit);
    bool fits(const SegmentFile& file) const;
    bool nextSegment(RecordedSegment& out);
    bool reopenGrown();
    bool mayGrow();
    bool accepts(const CodedUnit& unit);
    bool isRequested(const CodedUnit& unit) const;
    bool keepsDistance(const CodedUnit& unit);
    bool follows(const CodedUnit& unit);
    void startRange();
    void startEpoch();
    bool isBehindEpoch(const CodedUnit& unit);
    bool isLead(const CodedUnit& unit) const
    {
        return unit.video == request_.video.has_value();
    }

    const std::shared_ptr<const RecordingDirectory> directory_;
    const HostClock& clock_;
    const Request request_;
    std::deque<RecordedSegment> found_;  // the next ones in order
    std::optional<RecordedSegment> segment_;
    std::unique_ptr<SegmentFile> file_;
    bool fresh_ = false;         // no unit of the segment followed what was before yet
    bool resuming_ = false;      // the segment is read again up to where it ended before
    bool waitsForKey_ = true;    // audio waits too
    bool epochFollows_ = false;  // behind the interval's end in this epoch comes its begin in a later one
    std::uint32_t range_ = 0;
    WallTime start_;               // of the section: its first key frame
    std::optional<WallTime> end_;  // of the section as far as it was read
    WallTime lastFrame_;           // 1970 before the first one
    WallTime lastAudio_;
    std::optional<WallTime> lastKey_;  // taken, where only key frames are
    int waits_ = 0;                    // for growth, without any
};

}  // namespace refhost
