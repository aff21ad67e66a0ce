#include "refhost/rtp/udp/UdpTransport.h"

#include <utility>

namespace refhost
{
namespace
{

constexpr TransportTraits udpTraits = []
{
    TransportTraits traits;
    // A datagram that overruns the client's socket buffer is lost silently: only the key frame is sent in a
    // burst.
    traits.maxCatchUpUnits = 4;
    traits.silentWhenGone = true;
    return traits;
}();

}  // namespace

UdpTransport::UdpTransport(std::shared_ptr<UdpSockets> sockets, const SocketAddress& rtp, int rtcpPort,
                           std::shared_ptr<SessionLiveness> liveness)
    : GatedTransport(udpUnicast, udpTraits, std::move(liveness)),
      sockets_(std::move(sockets)),
      rtp_(rtp),
      rtcpPort_(static_cast<std::uint16_t>(rtcpPort))
{
    sockets_->rtcpReceiveQueues().listen(rtcp(), receiveQueue());
}

UdpTransport::~UdpTransport() noexcept(false)
{
    sockets_->rtcpReceiveQueues().unlisten(rtcp(), receiveQueue().get());
    if (takesRtp_.load())
    {
        sockets_->rtpReceiveQueues().unlisten(rtp_, receiveQueue().get());
    }
}

void UdpTransport::takeRtp()
{
    if (!takesRtp_.exchange(true))
    {
        sockets_->rtpReceiveQueues().listen(rtp_, receiveQueue());
    }
}

SocketAddress UdpTransport::rtcp() const
{
    SocketAddress address = rtp_;
    address.setPort(rtcpPort_);
    return address;
}

std::string UdpTransport::peerName() const
{
    return rtp_.textWithPort();
}

void UdpTransport::addFootprint(Footprint& footprint) const
{
    footprint.add(*this);
}

SendResult UdpTransport::transmit(const AccessUnitPtr& unit, std::size_t firstPacket,
                                  const RtpHeaderFields& header, bool /*more*/)
{
    return sockets_->rtpSender().send(rtp_, unit, firstPacket, header);
}

void UdpTransport::transmitRtcp(const std::uint8_t* data, std::size_t size)
{
    sockets_->sendRtcp(rtcp(), data, size);
}

}  // namespace refhost
