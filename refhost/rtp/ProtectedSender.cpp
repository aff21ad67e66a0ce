#include "refhost/rtp/ProtectedSender.h"

#include <utility>

namespace refhost
{

ProtectedSender::ProtectedSender(std::shared_ptr<PacketProtection> protection)
    : protection_(std::move(protection))
{
}

SendResult ProtectedSender::send(const AccessUnitPtr& unit, std::size_t firstPacket,
                                 const RtpHeaderFields& header, const Transmit& transmit)
{
    const MutexLock guard(mutex_);
    if (!prepare(unit, firstPacket, header))
    {
        return {SendStatus::closed, 0};
    }
    Unfinished& current = *unfinished_;
    RtpHeaderFields first = current.header;
    const std::size_t index = firstPacket - current.sealedFrom;
    first.sequence = static_cast<std::uint16_t>(first.sequence + index);
    const SendResult result = transmit(current.sealed, index, first);
    current.next = firstPacket + result.packets;
    if (current.next == unit->packets.size())
    {
        unfinished_.reset();
    }
    return result;
}

/// Makes the unfinished unit `unit`, sealed from `firstPacket` on.
bool ProtectedSender::prepare(const AccessUnitPtr& unit, std::size_t firstPacket,
                              const RtpHeaderFields& header)
{
    if (unfinished_ && unfinished_->unit == unit && unfinished_->next == firstPacket)
    {
        return true;
    }
    if (unfinished_)
    {
        skipped_ =
            static_cast<std::uint16_t>(skipped_ + unfinished_->unit->packets.size() - unfinished_->next);
        unfinished_.reset();
    }
    RtpHeaderFields fields = header;
    fields.sequence = static_cast<std::uint16_t>(fields.sequence + skipped_);
    AccessUnitPtr sealed = protection_->seal(*unit, firstPacket, fields);
    if (sealed == nullptr)
    {
        return false;
    }
    unfinished_ = Unfinished{unit, std::move(sealed), firstPacket, firstPacket, fields};
    return true;
}

}  // namespace refhost
