#pragma once
// Tested by tests/refhost/export/RecordedFragments_test.cpp.

#include <array>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <vector>

#include "refhost/base/HostClock.h"
#include "refhost/capture/DecodeTimes.h"
#include "refhost/media/EncodedUnit.h"
#include "refhost/playback/RecordingDirectory.h"
#include "refhost/playback/SegmentFile.h"
#include "refhost/playback/UnitReader.h"

namespace refhost
{

/// Recorded media of one stream as MP4 fragments, as FragmentWriter makes those of live ones: one for each frame and block
/// of audio, without decoding anything.
///
/// Time on the media's timeline passes as it did when it was recorded, backwards too, where the latest frame comes first.
/// Gaps stay as long as they were; only where the clock was set back does the media go on behind what was read so far.
/// Each contiguous range says which date is where.
///
/// Holds one frame and one block of audio, and what a file needs that is read. Reads from a disk. Threads: one at a time.
class RecordedFragments
{
public:
    struct Request
    {
        int cameraId = 0;
        int streamId = 0;
        /// Starts with the key frame at or before it; in a gap with the next one, backwards the one before.
        WallTime start;
        /// Where to stop; backwards earlier than `start`. Nothing: as far as there are recordings, those that are written
        /// meanwhile included.
        std::optional<WallTime> end;
        bool backwards = false;      ///< by key frames
        bool keyFramesOnly = false;  ///< no audio then, and none backwards
        Duration keyDistance{};      ///< min. distance of these
        bool audio = true;           ///< audio that MP4 can hold for browsers
    };

    /// Which date is where: `date` + n is at `media` + n, backwards `date` - n.
    struct Range
    {
        WallTime date;     ///< of the first key frame
        Duration media{};  ///< its presentation, from the timeline's begin
    };

    /// What comes next.
    struct Next
    {
        enum class Kind
        {
            description,  ///< the fragments behind it are of these tracks: they need an init segment
            range,        ///< the fragments behind it are of another contiguous range
            fragment,
            later,  ///< nothing yet: more may be written
            end     ///< nothing any more
        };

        Kind kind = Kind::end;
        std::shared_ptr<const MediaFormat> video;  ///< of a description; null: none
        std::shared_ptr<const MediaFormat> audio;
        Range range;                         ///< of a range
        std::vector<std::uint8_t> fragment;  ///< of a fragment, and its decode time:
        Duration decode{};
    };

    /// How long audio may be missing before the description goes on without it: browsers wait for the tracks that one has.
    static constexpr Duration maxSilence = std::chrono::seconds(2);

    /// \param clock  outlives this
    RecordedFragments(std::shared_ptr<const RecordingDirectory> directory, const HostClock& clock,
                      const Request& request);
    ~RecordedFragments();
    RecordedFragments(const RecordedFragments&) = delete;
    RecordedFragments& operator=(const RecordedFragments&) = delete;

    /// The first is a description, or the end where nothing was recorded.
    Next next();

private:
    /// A unit whose duration follows from the next one of its track.
    struct Held
    {
        EncodedUnit unit;
        WallTime date;
    };

    struct Track
    {
        std::shared_ptr<const MediaFormat> format;  // as described; null: not
        std::optional<Held> held;
        Duration step{};
        std::optional<MonotonicTime> last;  // decode time
        std::optional<MonotonicTime> next;  // where audio that is contiguous goes on
    };

    bool open();
    std::unique_ptr<SegmentFile> firstFile() const;
    std::vector<RecordedSegment> firstSegments() const;
    void take(CodedUnit& unit);
    bool isBehindEnd(const CodedUnit& unit);
    void startRange(WallTime date);
    void describe(const CodedUnit& unit, const std::shared_ptr<const MediaFormat>& format);
    void addDescription();
    MonotonicTime presentation(WallTime date) const;
    MonotonicTime decodeTime(const CodedUnit& unit, MonotonicTime presented);
    MonotonicTime alignedAudio(const CodedUnit& unit, MonotonicTime presented, Duration length);
    void flush(Track& track, std::optional<MonotonicTime> next);
    void flush();

    const std::shared_ptr<const RecordingDirectory> directory_;
    const HostClock& clock_;
    const Request request_;
    const WallTime end_;
    std::unique_ptr<UnitReader> reader_;
    bool ended_ = false;
    std::deque<Next> ready_;
    Track video_;
    Track audio_;
    DecodeTimes decodeTimes_;
    std::optional<std::uint32_t> rangeNumber_;
    Range range_;
    Duration mediaEnd_{};                 // of what was read
    std::optional<WallTime> audioUntil_;  // the last audio, or where it is expected from
    std::uint32_t sequence_ = 0;
};

}  // namespace refhost
