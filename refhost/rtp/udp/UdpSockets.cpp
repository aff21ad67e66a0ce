#include "refhost/rtp/udp/UdpSockets.h"

#include <utility>

#include "refhost/rtp/udp/DatagramReader.h"

namespace refhost
{

UdpSockets::UdpSockets(Descriptor rtp, Descriptor rtcp, const SocketAddress& bound, bool segmentation)
    : rtp_(std::move(rtp)), rtcp_(std::move(rtcp)), bound_(bound), sender_(rtp_.get(), segmentation)
{
}

void UdpSockets::sendRtcp(const SocketAddress& client, const std::uint8_t* data, std::size_t size)
{
    // Best effort: the next report makes up for a lost one.
    (void)::sendto(rtcp_.get(), data, size, MSG_DONTWAIT | MSG_NOSIGNAL, client.get(), client.size());
}

void UdpSockets::readRtp()
{
    DatagramReader::read(rtp_.get(),
                         [this](const SocketAddress& sender, const std::uint8_t* data, std::size_t size)
                         {
                             if (const auto receiveQueue = rtpReceiveQueues_.find(sender))
                             {
                                 receiveQueue->onRtp(data, size);
                             }
                         });
}

void UdpSockets::readRtcp()
{
    DatagramReader::read(rtcp_.get(),
                         [this](const SocketAddress& sender, const std::uint8_t* data, std::size_t size)
                         {
                             if (const auto receiveQueue = rtcpReceiveQueues_.find(sender))
                             {
                                 receiveQueue->onRtcp(data, size);
                             }
                         });
}

}  // namespace refhost
