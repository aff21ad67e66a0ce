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
        std::int64_t fromNs = 0;  ///< starts at the last key frame at or before it, or at what comes next
        std::int64_t endNs = 0;   ///< nothing of a segment that starts here or later
        bool keyFramesOnly = false;
        std::int64_t keyDistanceNs = 0;  ///< how far these are apart at least
        std::optional<Codec> video;      ///< wanted in this codec
        std::optional<Codec> audio;
    };

    /// Wall clock of the first unit that a reader of this request reads; nothing where it reads none.
    static std::optional<std::int64_t> startOf(std::shared_ptr<const RecordingDirectory> directory,
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
    std::uint32_t section() const override
    {
        return section_;
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
    Opened openSegment(const RecordedSegment& segment, std::int64_t fromNs,
                       const SegmentFile* grown = nullptr);
    bool isJustStarted(const RecordedSegment& segment) const;
    bool isOutOfSequence(const CodedUnit& unit) const;
    void skipDamage(const CodedUnit& unit);
    bool fits(const SegmentFile& file) const;
    bool nextSegment(RecordedSegment& out);
    bool reopenGrown();
    bool mayGrow();
    bool takes(const CodedUnit& unit);
    bool wants(const CodedUnit& unit) const;
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
    std::uint32_t section_ = 0;
    std::int64_t startNs_ = 0;  // of the section: its first key frame
    std::int64_t endNs_ = 0;    // of the section as far as it was read; 0 before its first unit
    std::int64_t lastFrameNs_ = 0;
    std::int64_t lastAudioNs_ = 0;
    std::optional<std::int64_t> lastKeyNs_;  // taken, where only key frames are
    int waits_ = 0;                          // for growth, without any
};

}  // namespace refhost
