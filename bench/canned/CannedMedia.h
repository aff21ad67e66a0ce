#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace rtspcanned
{

/// The packets of one video frame, as TCP and as UDP take them. Every viewer gets the same bytes.
struct CannedUnit
{
    /// A packet without its framing.
    struct Packet
    {
        std::size_t
            offset;  ///< in `datagrams`; in `framed` its framing follows that of all packets before it
        std::size_t size;
    };

    std::vector<std::uint8_t> framed;     ///< '$', channel, length, packet, …
    std::vector<std::uint8_t> datagrams;  ///< packet, packet, …
    std::vector<Packet> packets;
    std::chrono::nanoseconds time{0};  ///< after the first unit
    bool keyFrame = false;

    /// Appends one RTP packet.
    void append(const std::uint8_t* packet, std::size_t size);

    /// Writes the RTP header's sequence number, from `sequence` on, and timestamp into all packets.
    void stamp(std::uint16_t sequence, std::uint32_t timestamp);
};

/// What one server described and sent: some GOPs of one video track, to be sent again and again.
struct CannedMedia
{
    std::string description;  ///< the SDP text
    std::string track;        ///< the track's control attribute
    std::uint32_t ssrc = 0;
    std::uint32_t clockRate = 90'000;
    std::vector<CannedUnit> units;       ///< the first one is a key frame
    std::chrono::nanoseconds length{0};  ///< from the first unit to its repetition
};

}  // namespace rtspcanned
