#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "refhost/base/Mutex.h"
#include "refhost/rtp/PacketProtection.h"
#include "refhost/rtp/srtp/MikeyMessage.h"
#include "refhost/rtp/srtp/SrtpOpener.h"
#include "refhost/rtp/srtp/SrtpSealer.h"

namespace refhost
{

/// SRTP and SRTCP of one track, in both directions. Threads: any; one lock for each direction.
class SrtpProtection : public PacketProtection
{
public:
    /// \param own     of what the device sends
    /// \param client  of what the client sends; of a suite that SrtpOpener supports
    SrtpProtection(const SrtpKey& own, const SrtpKey& client);

    /// The number of the last packet of a source: its sequence number, and above it 65536 for each time that they
    /// started over. Nothing when the source is not the one that is sent.
    std::optional<std::uint64_t> sent(std::uint32_t ssrc);

    AccessUnitPtr seal(const AccessUnit& unit, std::size_t firstPacket,
                       const RtpHeaderFields& header) override;
    bool sealRtcp(std::vector<std::uint8_t>& packet) override;
    bool openRtp(std::uint8_t* packet, std::size_t& size) override;
    bool openRtcp(std::uint8_t* packet, std::size_t& size) override;

private:
    using Open = bool (SrtpOpener::*)(std::uint8_t*, std::size_t&);

    bool open(Open operation, std::uint8_t* packet, std::size_t& size);

    Mutex sendMutex_;
    SrtpSealer sealer_ OV_GUARDED_BY(sendMutex_);
    Mutex receiveMutex_;
    const SrtpKey clientKey_;
    // Null before the first packet: it takes much memory, and many clients send nothing.
    std::unique_ptr<SrtpOpener> opener_ OV_GUARDED_BY(receiveMutex_);
};

}  // namespace refhost
