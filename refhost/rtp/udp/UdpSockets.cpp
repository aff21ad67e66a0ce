#include "refhost/rtp/udp/UdpSockets.h"

#include <unistd.h>

#include "refhost/rtp/udp/DatagramReader.h"

namespace refhost
{

UdpSockets::UdpSockets(int rtp, int rtcp, const UdpAddress& bound, bool segmentation)
    : rtp_(rtp), rtcp_(rtcp), bound_(bound), sender_(rtp, segmentation)
{
}

UdpSockets::~UdpSockets()
{
    ::close(rtp_);
    ::close(rtcp_);
}

void UdpSockets::sendRtcp(const UdpAddress& client, const std::uint8_t* data, std::size_t size)
{
    // Best effort: a lost report is made good by the next one.
    (void)::sendto(rtcp_, data, size, MSG_DONTWAIT | MSG_NOSIGNAL, client.get(), client.size());
}

void UdpSockets::readRtp()
{
    DatagramReader::read(rtp_,
                         [this](const UdpAddress& sender, const std::uint8_t* data, std::size_t size)
                         {
                             if (const auto receiveQueue = rtpReceiveQueues_.find(sender))
                             {
                                 receiveQueue->onRtp(data, size);
                             }
                         });
}

void UdpSockets::readRtcp()
{
    DatagramReader::read(rtcp_,
                         [this](const UdpAddress& sender, const std::uint8_t* data, std::size_t size)
                         {
                             if (const auto receiveQueue = rtcpReceiveQueues_.find(sender))
                             {
                                 receiveQueue->onRtcp(data, size);
                             }
                         });
}

}  // namespace refhost
