#pragma once
// Tested by tests/refhost/rtp/multicast/MulticastServer_test.cpp.

#include <memory>

#include "refhost/rtp/GatedTransport.h"
#include "refhost/rtp/multicast/MulticastChannel.h"

namespace refhost
{

/// One member's handle to the transport of a track to its group. Transport kind 3. Made by MulticastServer.
///
/// Packets from the group are no activity of any member, so members do not keep each other's sessions alive.
class MulticastTransport : public GatedTransport
{
public:
    explicit MulticastTransport(std::shared_ptr<MulticastChannel> channel);
    ~MulticastTransport() noexcept(false) override;

private:
    SendResult transmit(const AccessUnitPtr& unit, std::size_t firstPacket, const RtpHeaderFields& header,
                        bool more) override;
    void transmitRtcp(const std::uint8_t* data, std::size_t size) override;

    const std::shared_ptr<MulticastChannel> channel_;
};

}  // namespace refhost
