#pragma once
// Tested by tests/refhost/playback/RecordedSource_test.cpp.

#include <cstdint>
#include <string>

#include "refhost/base/Times.h"
#include "refhost/media/AccessUnit.h"

namespace refhost
{

/// One access unit of recorded media and when it belongs where.
struct PlaybackUnit
{
    AccessUnitPtr unit;
    bool video = false;
    /// A decoder can start here.
    bool key = false;
    /// The last one of its track before a gap or the end of the recorded media.
    bool last = false;
    /// When the frame or block of audio was taken.
    WallTime wall;
    /// Its place in the order of playing: `wall`, or that time mirrored at where a request that reads
    /// backwards starts, so that it grows either way.
    WallTime media;
    /// When it must leave so that it and what is shown before it come in time, by the same clock: not after
    /// `media`. Does not go back within a section and track.
    WallTime due;
    /// How long it is shown or heard.
    Duration duration{};
    /// Number of the contiguous section of recorded media; another one after each gap.
    std::uint32_t range = 0;
};

/// The recording of an interval as one session reads it. Used by one thread at a time; may read from a disk.
class PlaybackSource
{
public:
    /// A track that is wanted.
    struct Track
    {
        /// Most bytes of RTP payload in a packet; 0: the track is not wanted.
        int payloadSize = 0;
        /// Encoding name that the client was told; recorded media of another codec is left out.
        std::string encodingName;
    };

    struct Request
    {
        WallTime from;  ///< reading starts at the key frame at or before it
        WallTime end;   ///< what is shown from here on is left out
        /// Reads key frames alone, from the one at or before `from` down to those at or after `end`.
        bool backwards = false;
        bool keyFramesOnly = false;
        Duration keyDistance{};  ///< how far these are apart at least, in the recorded media
        Track video;
        Track audio;

        /// The place of an instant in the order of playing, and back.
        WallTime mirrored(WallTime instant) const
        {
            return backwards ? from + (from - instant) : instant;
        }
    };

    enum class Result
    {
        unit,
        end,   ///< nothing follows
        later  ///< the recorded media is still being written; ask again
    };

    virtual ~PlaybackSource() = default;

    /// Starts again.
    /// \returns false when no recorded media is there or follows; what was read before goes on then
    virtual bool open(const Request& request) = 0;

    /// Reads on, over the ends of segments and over gaps, in the order of decoding.
    /// \param[out] out  filled for Result::unit
    virtual Result read(PlaybackUnit& out) = 0;
};

}  // namespace refhost
