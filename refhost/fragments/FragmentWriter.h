#pragma once
// Tested by tests/refhost/fragments/FragmentWriter_test.cpp.

#include <cstdint>
#include <string>
#include <vector>

#include "refhost/base/Times.h"
#include "refhost/media/EncodedUnit.h"

namespace refhost
{

/// Writes media as fragmented MP4 (ISO/IEC 14496-12, section 8.8), as Media Source Extensions take it: an init
/// segment, then one fragment for each unit. Video is track 1, audio track 2.
///
/// A fragment does not depend on which tracks the init segment has, so that one fragment serves every viewer.
/// Threads: any; no state.
class FragmentWriter
{
public:
    static constexpr std::uint32_t timescale = 90000;
    static constexpr std::uint32_t videoTrack = 1;
    static constexpr std::uint32_t audioTrack = 2;

    /// Where a unit stands.
    struct Place
    {
        std::uint32_t sequence = 0;  ///< number of the fragment, from 1
        /// The unit's decode time, from the begin of the media's timeline. Not negative.
        Duration decode{};
        Duration duration{};  ///< up to the next unit of its track
        /// When the unit was captured; viewers see their latency by it (`prft`, section 8.16.5).
        WallTime captured;
    };

    /// The init segment. Null: the stream has no such track, or the viewer does not want it; one is not null.
    static std::vector<std::uint8_t> init(const MediaFormat* video, const MediaFormat* audio);

    /// The tracks as browsers are asked for them (RFC 6381), such as
    /// `video/mp4; codecs="avc1.42C00D,mp4a.40.2"`. Arguments as of init().
    static std::string mimeType(const MediaFormat* video, const MediaFormat* audio);

    /// Whether MP4 for browsers can hold the format: its codec has a name there.
    static bool canHold(const MediaFormat& format);

    static std::vector<std::uint8_t> fragment(const EncodedUnit& unit, const Place& place);

    /// A time in units of the timescale, rounded to the nearest.
    static std::int64_t ticks(Duration time);
};

}  // namespace refhost
