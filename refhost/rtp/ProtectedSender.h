#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

#include "refhost/base/Mutex.h"
#include "refhost/rtp/PacketProtection.h"

namespace refhost
{

/// Seals access units for one track, each packet once, whatever of them the network takes.
///
/// A unit that the network took partly is kept sealed and continued with the same bytes. If its owner skips the
/// rest instead, the sequence numbers of the rest stay used: later packets are numbered past them, and the
/// client sees a loss. Threads: any; its lock is held while a unit is sent.
class ProtectedSender
{
public:
    /// Sends packets of a sealed unit, as RtpTransport::send().
    using Transmit = std::function<SendResult(const AccessUnitPtr& sealed, std::size_t firstPacket,
                                              const RtpHeaderFields& header)>;

    explicit ProtectedSender(std::shared_ptr<PacketProtection> protection);

    /// \returns as `transmit`; `closed` when the key must not be used any longer
    SendResult send(const AccessUnitPtr& unit, std::size_t firstPacket, const RtpHeaderFields& header,
                    const Transmit& transmit);

    PacketProtection& protection() const
    {
        return *protection_;
    }

private:
    /// A unit that was sealed and not sent to its end.
    struct Unfinished
    {
        AccessUnitPtr unit;
        AccessUnitPtr sealed;
        std::size_t sealedFrom;  // number of the unit's packet that is the first sealed one
        std::size_t next;        // the unit's next packet to send
        RtpHeaderFields header;  // of the first sealed packet
    };

    bool prepare(const AccessUnitPtr& unit, std::size_t firstPacket, const RtpHeaderFields& header)
        OV_REQUIRES(mutex_);

    const std::shared_ptr<PacketProtection> protection_;
    Mutex mutex_;
    std::uint16_t skipped_ OV_GUARDED_BY(mutex_) = 0;  // sequence numbers used for packets never sent
    std::optional<Unfinished> unfinished_ OV_GUARDED_BY(mutex_);
};

}  // namespace refhost
