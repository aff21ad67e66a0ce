#include "refhost/rtp/multicast/MulticastTransport.h"

#include <utility>

namespace refhost
{
namespace
{

constexpr TransportTraits multicastTraits = []
{
    TransportTraits traits;
    traits.maxCatchUpUnits = 4;  // as over unicast UDP
    traits.shared = true;
    return traits;
}();

}  // namespace

MulticastTransport::MulticastTransport(std::shared_ptr<MulticastChannel> channel)
    : GatedTransport(udpMulticast, multicastTraits, channel->receiveQueue()), channel_(std::move(channel))
{
}

MulticastTransport::~MulticastTransport() noexcept(false) = default;

SendResult MulticastTransport::transmit(const AccessUnitPtr& unit, std::size_t firstPacket,
                                        const RtpHeaderFields& header, bool /*more*/)
{
    return channel_->send(unit, firstPacket, header);
}

void MulticastTransport::transmitRtcp(const std::uint8_t* data, std::size_t size)
{
    channel_->sendRtcp(data, size);
}

}  // namespace refhost
