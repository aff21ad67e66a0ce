#pragma once
// Tested by tests/refhost/fragments/FragmentWriter_test.cpp.

#include <cstdint>

#include "refhost/base/Times.h"
#include "refhost/media/EncodedUnit.h"
#include "refhost/mp4/Mp4Writer.h"

namespace refhost
{

/// The boxes of a movie that are the same in a whole file and in the init segment of a fragmented one (ISO/IEC
/// 14496-12, sections 8.2 to 8.7). Threads: any; no state.
class MovieBoxes
{
public:
    struct Track
    {
        std::uint32_t id = 0;
        WallTime created;
        std::uint64_t movieLength =
            0;  ///< of what is presented, in units of the movie's timescale; 0: fragments
        std::uint64_t mediaLength = 0;        ///< in units of `timescale`; 0: fragments
        std::uint32_t timescale = 0;          ///< units of the media's times a second
        const MediaFormat* format = nullptr;  ///< not null
    };

    /// `mvhd`.
    /// \param length  in units of `timescale`; 0: fragments
    static void addMovieHeader(Mp4Writer& out, WallTime created, std::uint32_t timescale,
                               std::uint64_t length);
    /// `tkhd`.
    static void addTrackHeader(Mp4Writer& out, const Track& track);
    /// `mdhd` and `hdlr`.
    static void addMediaHead(Mp4Writer& out, const Track& track);
    /// `vmhd` or `smhd`, and `dinf`: the media are in the same file.
    static void addInformationHead(Mp4Writer& out, const Track& track);
};

}  // namespace refhost
