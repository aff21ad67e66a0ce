#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "refhost/base/Times.h"
#include "refhost/media/EncodedUnit.h"

namespace refhost
{

/// Receives the segments of a cutter: for each its start, its units, its end.
class SegmentSink
{
public:
    using Tracks = std::vector<std::shared_ptr<const MediaFormat>>;

    virtual ~SegmentSink() = default;

    /// \param begin   capture time of the frame that is presented first: the key frame, or one of its leading
    ///                frames
    /// \param tracks  video first
    virtual void startSegment(MonotonicTime begin, const Tracks& tracks) = 0;
    /// \param track  index into the segment's tracks; the unit is not from before the segment's begin
    virtual void writeUnit(std::size_t track, const EncodedUnitPtr& unit) = 0;
    /// \param duration  up to the end of the last frame
    virtual void endSegment(Duration duration) = 0;
};

/// Decides which encoded unit goes into which segment.
///
/// A segment starts with a key frame: the first one, the first one after the configured length, or one with
/// another format. Audio and video of one time do not arrive together: the earlier one is held back for a
/// while, so that no audio is lost or put into the wrong segment. Leading frames of a key frame (open GOPs)
/// stay with it where another segment precedes it; elsewhere they are left out, because they cannot be decoded.
/// A jump of the capture times ends the segment. A stream without video is cut at its audio.
///
/// Threads: one at a time.
class SegmentCutter
{
public:
    /// The tracks that a stream has.
    struct Expected
    {
        bool video = true;
        bool audio = true;
    };

    /// Max time that units are held back for the other track.
    static constexpr Duration maxHold = std::chrono::seconds(1);
    /// How much a segment may be shorter than requested: capture times are not exact.
    static constexpr Duration tolerance = std::chrono::milliseconds(250);
    /// A larger step of the capture times is a gap.
    static constexpr Duration maxPause = std::chrono::seconds(5);

    /// Max units, and max bytes plus one unit, of each of the two queues of held units.
    static constexpr std::size_t maxHeld = 1000;
    static constexpr std::size_t maxHeldBytes = 16U << 20U;

    /// \param segmentLength  requested length
    /// \param expected       returns the stream's tracks; called until all have appeared
    /// \param sink           outlives the cutter
    SegmentCutter(Duration segmentLength, std::function<Expected()> expected, SegmentSink& sink);

    /// The length that is requested from now on, also of the present segment.
    void setLength(Duration segmentLength)
    {
        segmentLength_ = segmentLength;
    }

    void take(const EncodedUnitPtr& unit);
    /// Ends the present segment; the next one starts with the next key frame.
    void interrupt();
    /// Cuts at the next key frame, whatever the length of the segment; no unit is lost.
    void cutSoon()
    {
        cutsSoon_ = open_;
    }

private:
    using Format = std::shared_ptr<const MediaFormat>;

    bool isReference(const EncodedUnit& unit);
    bool jumps(const EncodedUnit& unit) const;
    bool isCutDue(const EncodedUnit& unit) const;
    bool isHoldOver(const EncodedUnit& unit);
    bool isAhead(const EncodedUnit& unit) const;
    void keepAhead(const EncodedUnitPtr& unit);
    void releaseAhead(MonotonicTime until);
    void place(const EncodedUnitPtr& unit, bool reference);
    void hold(const EncodedUnitPtr& unit);
    void write(const EncodedUnitPtr& unit);
    void cut();
    SegmentSink::Tracks knownTracks() const;

    Duration segmentLength_;
    const std::function<Expected()> expected_;
    SegmentSink& sink_;

    Format video_;  ///< since the last interruption
    Format audio_;
    bool open_ = false;
    bool cutsSoon_ = false;  ///< at the next key frame, whatever the length
    MonotonicTime begin_;
    SegmentSink::Tracks tracks_;            ///< of the open segment
    MonotonicTime end_;                     ///< end of the last frame that was written
    std::optional<MonotonicTime> last_;     ///< capture time of the last frame that came
    Duration lastStep_{};                   ///< from the last but one to it
    std::optional<MonotonicTime> pending_;  ///< begin of the next segment, while units are held back
    bool reorders_ = false;                 ///< frames come in another order than they are presented in
    bool leadersCame_ = false;              ///< all leading frames of the pending key frame came
    std::vector<EncodedUnitPtr> held_;
    std::size_t heldBytes_ = 0;
    std::deque<EncodedUnitPtr> ahead_;  ///< audio that is later than every frame so far
    std::size_t aheadBytes_ = 0;
    bool audioCameThrough_ = false;  ///< audio reached the pending begin
};

}  // namespace refhost
