#include "refhost/rtp/UdpSockets.h"

#include <unistd.h>

#include <array>

namespace refhost
{
namespace
{

/// One call's share of work, so that a flood of datagrams does not keep an event loop from everything else.
constexpr unsigned batches = 4;
constexpr unsigned packetsPerBatch = 32;
/// No packet of a client is longer than an Ethernet frame; a longer one was never meant for us.
constexpr std::size_t packetRoom = 1500;

/// Reads what waits at `socket`, within the bounds above, and calls `take` with each whole packet.
template <typename Take>
void readTo(int socket, const Take& take)
{
    std::array<std::array<std::uint8_t, packetRoom>, packetsPerBatch> rooms;
    std::array<UdpAddress, packetsPerBatch> senders;
    std::array<iovec, packetsPerBatch> vectors;
    std::array<mmsghdr, packetsPerBatch> messages;
    for (unsigned batch = 0; batch < batches; ++batch)
    {
        for (unsigned i = 0; i < packetsPerBatch; ++i)
        {
            vectors[i] = {rooms[i].data(), rooms[i].size()};
            messages[i] = {};
            messages[i].msg_hdr.msg_name = senders[i].fill();
            messages[i].msg_hdr.msg_namelen = UdpAddress::room;
            messages[i].msg_hdr.msg_iov = &vectors[i];
            messages[i].msg_hdr.msg_iovlen = 1;
        }
        const int count = ::recvmmsg(socket, messages.data(), packetsPerBatch, MSG_DONTWAIT, nullptr);
        for (int i = 0; i < count; ++i)
        {
            const auto index = static_cast<std::size_t>(i);
            if ((messages[index].msg_hdr.msg_flags & MSG_TRUNC) == 0)
            {
                take(senders[index], rooms[index].data(), messages[index].msg_len);
            }
        }
        if (count < static_cast<int>(packetsPerBatch))
        {
            return;
        }
    }
}

}  // namespace

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
    readTo(rtp_,
           [this](const UdpAddress& sender, const std::uint8_t* data, std::size_t size)
           {
               if (const auto inbox = rtpInboxes_.find(sender))
               {
                   inbox->onRtp(data, size);
               }
           });
}

void UdpSockets::readRtcp()
{
    readTo(rtcp_,
           [this](const UdpAddress& sender, const std::uint8_t* data, std::size_t size)
           {
               if (const auto inbox = rtcpInboxes_.find(sender))
               {
                   inbox->onRtcp(data, size);
               }
           });
}

}  // namespace refhost
