#pragma once
// Tested by tests/refhost/playback/RecordedSource_test.cpp.

#include <cstdint>
#include <string>

#include "refhost/base/Times.h"
#include "refhost/media/AccessUnit.h"

namespace refhost
{

/// One access unit of recorded media with its times.
struct PlaybackUnit
{
    AccessUnitPtr unit;
    bool video = false;
    /// A decoder can start here.
    bool key = false;
    /// The last one of its track before a gap or the end of the recorded media.
    bool last = false;
    /// Capture date of the frame or block of audio.
    WallTime wall;
    /// Position in the order of play: `wall`, backwards mirrored at the request's start, so that it increases
    /// in both directions.
    WallTime media;
    /// When it must be sent so that it and the frames displayed before it arrive in time: not after `media`.
    /// Never decreases within a range and track.
    WallTime due;
    /// Presentation duration.
    Duration duration{};
    /// Number of the contiguous range of the recording; another one after each gap.
    std::uint32_t range = 0;
};

/// The recording of an interval as one session reads it. May read from a disk. Threads: one at a time.
class PlaybackSource
{
public:
    /// A requested track.
    struct Track
    {
        /// Max. bytes of RTP payload in a packet; 0: the track is not requested.
        int payloadSize = 0;
        /// Encoding name in the client's description; media of another codec are skipped.
        std::string encodingName;
    };

    struct Request
    {
        WallTime from;  ///< reading starts at the key frame at or before it
        WallTime end;   ///< media from here on are left out
        /// Reads key frames alone, from the one at or before `from` down to those at or after `end`.
        bool backwards = false;
        bool keyFramesOnly = false;
        Duration keyDistance{};  ///< min. distance of these in the recording
        Track video;
        Track audio;

        /// Maps a date to the order of play, and back.
        WallTime mirrored(WallTime instant) const
        {
            return backwards ? from + (from - instant) : instant;
        }
    };

    enum class Result
    {
        unit,
        end,   ///< nothing follows
        later  ///< the recording still grows; try again
    };

    virtual ~PlaybackSource() = default;

    /// Starts to read at another position.
    /// \returns false when nothing is recorded there or later; read() then continues as before
    virtual bool open(const Request& request) = 0;

    /// Reads the next unit, across segments and gaps, in decoding order.
    /// \param[out] out  filled for Result::unit
    virtual Result read(PlaybackUnit& out) = 0;
};

}  // namespace refhost
