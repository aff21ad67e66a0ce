#pragma once
// Tested by tests/refhost/rtp/payload/H264Depacketizer_test.cpp.

#include <cstddef>

#include "refhost/media/ByteSpan.h"

namespace refhost
{

// NAL units in a byte stream (H.264 and H.265, annex B).

/// \returns the bytes of a start code at the start, 0 where there is none
inline std::size_t startCodeOf(ByteSpan bytes)
{
    std::size_t zeros = 0;
    while (zeros < bytes.size && zeros < 3 && bytes[zeros] == 0)
    {
        ++zeros;
    }
    return zeros >= 2 && zeros < bytes.size && bytes[zeros] == 1 ? zeros + 1 : 0;
}

/// \returns where the next start code begins, or the end
inline std::size_t nextStartCode(ByteSpan bytes)
{
    for (std::size_t at = 0; at + 2 < bytes.size; ++at)
    {
        if (bytes[at] == 0 && bytes[at + 1] == 0 && bytes[at + 2] == 1)
        {
            return at > 0 && bytes[at - 1] == 0 ? at - 1 : at;
        }
    }
    return bytes.size;
}

}  // namespace refhost
