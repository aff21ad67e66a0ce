#pragma once
// Tested by tests/refhost/rtp/udp/UdpUnitSender_test.cpp, tests/refhost/rtp/InterleavedTransport_test.cpp.

#include <cstdint>

#include "refhost/base/ByteOrder.h"
#include "refhost/rtp/RtpTransport.h"

namespace refhost
{

/// Overwrites the RTP header at `at` with a session's fields; keeps version and marker bit (RFC 3550, section
/// 5.1).
inline void patchRtpHeader(std::uint8_t* at, const RtpHeaderFields& fields, std::uint16_t sequence)
{
    at[1] = static_cast<std::uint8_t>((at[1] & 0x80U) | fields.payloadType);
    writeBig16(at + 2, sequence);
    writeBig32(at + 4, fields.timestamp);
    writeBig32(at + 8, fields.ssrc);
}

}  // namespace refhost
