#pragma once
// Tested by tests/refhost/rtp/payload/JpegDepacketizer_test.cpp, tests/refhost/rtp/payload/JpegPacketizer_test.cpp.

#include <cstdint>
#include <vector>

#include "refhost/media/ByteSpan.h"

namespace refhost
{

/// What RFC 2435 transmits of a baseline JPEG frame. A plain value.
struct JpegHeader
{
    bool halfHeight = true;  ///< chroma has half the height (4:2:0, type 1); otherwise 4:2:2, type 0
    int width = 0;           ///< pixels; a multiple of 8, at most 2040
    int height = 0;          ///< as width
    std::uint16_t restartInterval = 0;     ///< blocks between restart markers; 0: there are none
    std::vector<std::uint8_t> quantizers;  ///< of luma, then of chroma: 128 bytes

    /// Writes all that stands in front of the scan in a JPEG file (JFIF).
    void writeTo(std::vector<std::uint8_t>& out) const;

    /// Reads a JPEG file.
    /// \param[out] scan  its scan, without the marker of the end
    /// \returns null on success, otherwise why RFC 2435 cannot carry it, a constant text
    static const char* read(ByteSpan file, JpegHeader& out, ByteSpan& scan);
};

}  // namespace refhost
