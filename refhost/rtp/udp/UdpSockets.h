#pragma once
// Tested by tests/refhost/rtp/udp/UdpServer_test.cpp.

#include <cstddef>
#include <cstdint>
#include <memory>

#include "refhost/rtp/GatedTransport.h"
#include "refhost/rtp/udp/UdpAddress.h"
#include "refhost/rtp/udp/UdpReceiveQueues.h"
#include "refhost/rtp/udp/UdpUnitSender.h"

namespace refhost
{

/// A bound pair of UDP sockets and who reads what comes back on them. Shared by the UDP server and the
/// transports that it made; closes the sockets at its end. Threads: any.
class UdpSockets
{
public:
    /// Takes over both descriptors.
    UdpSockets(int rtp, int rtcp, const UdpAddress& bound, bool segmentation);
    ~UdpSockets();
    UdpSockets(const UdpSockets&) = delete;
    UdpSockets& operator=(const UdpSockets&) = delete;

    int rtpDescriptor() const
    {
        return rtp_;
    }

    int rtcpDescriptor() const
    {
        return rtcp_;
    }

    /// The bound address with the RTP port.
    const UdpAddress& bound() const
    {
        return bound_;
    }

    UdpUnitSender& rtpSender()
    {
        return sender_;
    }

    void sendRtcp(const UdpAddress& client, const std::uint8_t* data, std::size_t size);

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
    const int rtp_;
    const int rtcp_;
    const UdpAddress bound_;
    UdpUnitSender sender_;
    UdpReceiveQueues rtpReceiveQueues_;
    UdpReceiveQueues rtcpReceiveQueues_;
};

}  // namespace refhost
