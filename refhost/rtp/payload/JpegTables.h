#pragma once
// Tested by tests/refhost/rtp/payload/JpegDepacketizer_test.cpp.

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "refhost/media/ByteSpan.h"

namespace refhost
{

/// The tables that RFC 2435 leaves out of packets. Threads: any; constants.
class JpegTables
{
public:
    static constexpr std::size_t quantizerSize = 64;

    /// The usual Huffman tables, as segments of a JPEG file: of luma DC and AC, of chroma DC and AC.
    static ByteSpan huffmanSegments();

    /// The quantizers of luma and chroma for a quality (appendix A). \param quality  1 to 99; others are
    /// taken as the nearest
    static std::vector<std::uint8_t> quantizers(unsigned quality);
};

}  // namespace refhost
