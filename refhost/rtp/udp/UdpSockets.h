#pragma once
// Tested by tests/refhost/rtp/udp/UdpServer_test.cpp.

#include <cstddef>
#include <cstdint>
#include <memory>

#include "refhost/base/Descriptor.h"
#include "refhost/base/SocketAddress.h"
#include "refhost/rtp/GatedTransport.h"
#include "refhost/rtp/udp/UdpReceiveQueues.h"
#include "refhost/rtp/udp/UdpUnitSender.h"

namespace refhost
{

/// A bound pair of UDP sockets and who reads what comes back on them. Shared by the UDP server and the
/// transports that it made; closes the sockets at its end. Threads: any.
class UdpSockets
{
public:
    UdpSockets(Descriptor rtp, Descriptor rtcp, const SocketAddress& bound, bool segmentation);
    UdpSockets(const UdpSockets&) = delete;
    UdpSockets& operator=(const UdpSockets&) = delete;

    int rtpDescriptor() const
    {
        return rtp_.get();
    }

    int rtcpDescriptor() const
    {
        return rtcp_.get();
    }

    /// The bound address with the RTP port.
    const SocketAddress& bound() const
    {
        return bound_;
    }

    UdpUnitSender& rtpSender()
    {
        return sender_;
    }

    void sendRtcp(const SocketAddress& client, const std::uint8_t* data, std::size_t size);

    /// Who takes the RTP, and who the RTCP, that comes from a client.
    UdpReceiveQueues& rtpReceiveQueues()
    {
        return rtpReceiveQueues_;
    }

    UdpReceiveQueues& rtcpReceiveQueues()
    {
        return rtcpReceiveQueues_;
    }

    void readRtp();
    void readRtcp();

private:
    const Descriptor rtp_;
    const Descriptor rtcp_;
    const SocketAddress bound_;
    UdpUnitSender sender_;
    UdpReceiveQueues rtpReceiveQueues_;
    UdpReceiveQueues rtcpReceiveQueues_;
};

}  // namespace refhost
