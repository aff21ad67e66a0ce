#pragma once
// Tested by tests/refhost/rtp/udp/UdpServer_test.cpp.

#include <atomic>
#include <cstdint>
#include <memory>

#include "refhost/base/SocketAddress.h"
#include "refhost/rtp/GatedTransport.h"
#include "refhost/rtp/udp/UdpSockets.h"

namespace refhost
{

/// RTP and RTCP of one track to one client's pair of UDP ports, from the server's shared sockets.
/// Transport kind 2. Made by UdpServer.
class UdpTransport : public GatedTransport
{
public:
    UdpTransport(std::shared_ptr<UdpSockets> sockets, const SocketAddress& rtp, int rtcpPort,
                 std::shared_ptr<SessionLiveness> liveness);
    ~UdpTransport() noexcept(false) override;

    void takeRtp() override;
    std::string peerName() const override;
    void addFootprint(Footprint& footprint) const override;

private:
    SendResult transmit(const AccessUnitPtr& unit, std::size_t firstPacket, const RtpHeaderFields& header,
                        bool more) override;
    void transmitRtcp(const std::uint8_t* data, std::size_t size) override;
    SocketAddress rtcp() const;

    const std::shared_ptr<UdpSockets> sockets_;
    const SocketAddress rtp_;
    const std::uint16_t rtcpPort_;
    std::atomic<bool> takesRtp_{false};
};

}  // namespace refhost
