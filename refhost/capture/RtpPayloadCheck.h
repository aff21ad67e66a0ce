#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

#include "refhost/media/Codec.h"

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

    /// Whether a payload's inner lengths fit. Codecs that have none, and those not known here, need a byte.
    static bool isWellFormed(const std::optional<Codec>& codec, const Payload& payload);
};

}  // namespace refhost
