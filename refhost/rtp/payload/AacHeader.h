#pragma once
// Tested by tests/refhost/rtp/payload/AacPacketizer_test.cpp.

#include <array>
#include <cstddef>
#include <cstdint>

#include "refhost/base/ByteOrder.h"

namespace refhost
{

/// What stands in front of one access unit, or of its fragment, in mode AAC-hbr (RFC 3640, section 3.3.6): the
/// length of the headers in bits and one header of 13 bits size and 3 bits index.
struct AacHeader
{
    static constexpr std::size_t size = 4;
    static constexpr unsigned sizeBits = 13;
    static constexpr unsigned indexBits = 3;
    static constexpr std::size_t maxUnitSize = 8191;

    std::array<std::uint8_t, size> bytes{};

    /// \param unitSize  of the whole unit; at most maxUnitSize
    explicit AacHeader(std::size_t unitSize)
    {
        constexpr std::uint16_t bits = sizeBits + indexBits;
        writeBig16(bytes.data(), bits);
        writeBig16(bytes.data() + 2, static_cast<std::uint16_t>(unitSize << indexBits));
    }
};

}  // namespace refhost
