#pragma once
// Tested by tests/refhost/rtp/ProtectedSender_test.cpp, tests/refhost/rtp/srtp/SrtpProtection_test.cpp.

#include <cstddef>
#include <cstdint>
#include <vector>

#include "refhost/media/AccessUnit.h"
#include "refhost/rtp/RtpTransport.h"

namespace refhost
{

/// Encrypts and authenticates what a transport sends, and opens what comes back. Threads: any.
class PacketProtection
{
public:
    virtual ~PacketProtection() = default;

    /// Makes the encrypted packets of `unit` from `firstPacket` on, with `header` written into them.
    ///
    /// Requires: every (SSRC, sequence number) is sealed once. Sealing two packets under the same number would
    /// show an eavesdropper how they differ.
    /// \returns null when the key must not be used any longer
    virtual AccessUnitPtr seal(const AccessUnit& unit, std::size_t firstPacket,
                               const RtpHeaderFields& header) = 0;

    /// Encrypts a compound RTCP packet in place, which makes it longer.
    /// \returns false when the key must not be used any longer
    virtual bool sealRtcp(std::vector<std::uint8_t>& packet) = 0;

    /// Opens a packet from the client in place.
    /// \param[in,out] size  becomes less on success
    /// \returns false, with the bytes unspecified, for one that is not authentic or was received before
    virtual bool openRtp(std::uint8_t* packet, std::size_t& size) = 0;
    virtual bool openRtcp(std::uint8_t* packet, std::size_t& size) = 0;
};

}  // namespace refhost
