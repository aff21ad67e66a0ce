#pragma once

#include <cstdint>

#include "refhost/rtp/RtpTransport.h"

namespace refhost
{

/// Writes a session's fields over the RTP header at `at`; version and marker bit stay (RFC 3550,
/// section 5.1).
inline void patchRtpHeader(std::uint8_t* at, const RtpHeaderFields& fields, std::uint16_t sequence)
{
    at[1] = static_cast<std::uint8_t>((at[1] & 0x80U) | fields.payloadType);
    at[2] = static_cast<std::uint8_t>(sequence >> 8U);
    at[3] = static_cast<std::uint8_t>(sequence);
    at[4] = static_cast<std::uint8_t>(fields.timestamp >> 24U);
    at[5] = static_cast<std::uint8_t>(fields.timestamp >> 16U);
    at[6] = static_cast<std::uint8_t>(fields.timestamp >> 8U);
    at[7] = static_cast<std::uint8_t>(fields.timestamp);
    at[8] = static_cast<std::uint8_t>(fields.ssrc >> 24U);
    at[9] = static_cast<std::uint8_t>(fields.ssrc >> 16U);
    at[10] = static_cast<std::uint8_t>(fields.ssrc >> 8U);
    at[11] = static_cast<std::uint8_t>(fields.ssrc);
}

}  // namespace refhost
