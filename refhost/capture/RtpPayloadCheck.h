#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace refhost
{

/// Judges RTP packets of a camera before they reach depayloaders, some of which read beyond the end of
/// payloads whose inner lengths lie. Threads: any; no state.
class RtpPayloadCheck
{
public:
    /// Where the payload of an RTP packet stands (RFC 3550, section 5.1).
    struct Payload
    {
        const std::uint8_t* data = nullptr;
        std::size_t size = 0;
    };

    /// Finds the payload behind contributing sources and extension, without padding.
    /// \returns false when the packet is malformed
    static bool find(const std::uint8_t* packet, std::size_t size, Payload& payload);

    /// Whether a payload's inner lengths fit. Encodings that have none, or that are not known here, need a
    /// byte. \param encoding  encoding name in capitals, such as "H264"
    static bool isWellFormed(std::string_view encoding, const Payload& payload);
};

}  // namespace refhost
