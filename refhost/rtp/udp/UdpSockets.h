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

/// A bound pair of UDP sockets and the receivers of their packets. Shared by the UDP server and its
/// transports; owns the sockets. Threads: any.
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

    /// The receivers of the clients' RTP and RTCP.
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
