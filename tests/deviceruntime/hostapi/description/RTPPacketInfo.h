#pragma once

#include <cstdint>

/// A device's next packet; the library only passes it on.
class RTPPacketInfo
{
public:
    std::uint16_t sequenceNumber = 0;
    std::uint32_t rtpTimestamp = 0;
};
