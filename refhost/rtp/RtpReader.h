#pragma once

#include <cstddef>
#include <cstdint>

namespace refhost
{

/// The fields of one RTP packet (RFC 3550, section 5.1). The payload points into the packet.
struct RtpPacketView
{
    bool marker = false;
    std::uint8_t payloadType = 0;
    std::uint16_t sequence = 0;
    std::uint32_t timestamp = 0;
    std::uint32_t ssrc = 0;
    const std::uint8_t* payload = nullptr;
    std::size_t payloadSize = 0;
};

/// Reads RTP packets from the network.
class RtpReader
{
public:
    /// Whether the packet has the fixed header of RTP version 2.
    static bool hasHeader(const std::uint8_t* data, std::size_t size);

    /// Reads a whole packet. Skips contributing sources and a header extension, removes padding.
    /// \param[out] out  filled on success, otherwise left as it was
    /// \returns false when the packet is malformed or has no payload
    static bool read(const std::uint8_t* data, std::size_t size, RtpPacketView& out);
};

}  // namespace refhost
