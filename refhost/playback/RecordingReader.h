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

/// Reads a camera's recorded media of an interval forwards, across segments and gaps.
///
/// Unreadable segments are skipped with a line in the log. Reads from a disk. Threads: one at a time.
class RecordingReader : public UnitReader
{
public:
    struct Request
    {
        int cameraId = 0;
        int streamId = 0;
        WallTime from;  ///< starts at the last key frame at or before it, or at the next one
        WallTime end;   ///< segments that start here or later are not read
        bool keyFramesOnly = false;
        Duration keyDistance{};      ///< min. distance of these
        std::optional<Codec> video;  ///< requested in this codec; nothing: not requested
        std::optional<Codec> audio;
    };

    /// Date of the first unit of a request; nothing where there is none.
    static std::optional<WallTime> startOf(std::shared_ptr<const RecordingDirectory> directory,
                                           const HostClock& clock, const Request& request);

    /// \param clock  outlives the reader
    RecordingReader(std::shared_ptr<const RecordingDirectory> directory, const HostClock& clock,
                    const Request& request);
    ~RecordingReader() override;

    /// The next unit in decoding order, with its date. Where the clock was set back, the media recorded
    /// before come first, up to the interval's end, then those recorded after, as another contiguous range.
    /// Each range starts with a key frame, and its audio with that frame.
    Result read(CodedUnit& out) override;

    /// Number of the contiguous range of the last unit.
    std::uint32_t range() const override
    {
        return range_;
    }

    /// Track of the last unit.
    const FileTrack& track(bool video) const override
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
    bool fresh_ = false;         // no unit of the segment was accepted yet
    bool resuming_ = false;      // the segment is read again up to its former end
    bool waitsForKey_ = true;    // audio waits too
    bool epochFollows_ = false;  // a later epoch has media of the interval, too
    std::uint32_t range_ = 0;
    WallTime start_;               // of the range: its first key frame
    std::optional<WallTime> end_;  // of the range as far as it was read
    WallTime lastFrame_;           // 1970 before the first one
    WallTime lastAudio_;
    std::optional<WallTime> lastKey_;  // accepted, where only key frames are
    int waits_ = 0;                    // for growth, in a row
};

}  // namespace refhost
