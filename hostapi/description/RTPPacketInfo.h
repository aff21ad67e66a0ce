#pragma once

#include <cstdint>

/// The packet that a track sends next: what RTP-Info says of it. A plain value.
class RTPPacketInfo
{
public:
    /// Sequence number of the next packet.
    std::uint16_t sequenceNumber = 0;
    /// RTP timestamp of the next packet, in ticks of the track's clock.
    std::uint32_t rtpTimestamp = 0;
};
