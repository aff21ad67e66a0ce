#include "refhost/rtp/UdpSockets.h"

#include <unistd.h>

#include <utility>

namespace refhost
{
namespace
{

/// One call's share of work, so that a flood of datagrams does not keep an event loop from everything else.
constexpr unsigned batches = 4;
constexpr unsigned packetsPerBatch = 32;
/// No compound packet of a client is longer than an Ethernet frame; a longer one is cut and so malformed.
constexpr std::size_t rtcpRoom = 1500;

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

void UdpSockets::listen(const UdpAddress& client, std::shared_ptr<TransportInbox> inbox)
{
    Shard& shard = shardOf(client);
    const std::lock_guard<std::mutex> guard(shard.mutex);
    shard.inboxes[client].swap(inbox);
}

void UdpSockets::unlisten(const UdpAddress& client, const TransportInbox* inbox)
{
    Shard& shard = shardOf(client);
    const std::lock_guard<std::mutex> guard(shard.mutex);
    const auto found = shard.inboxes.find(client);
    if (found != shard.inboxes.end() && found->second.get() == inbox)
    {
        shard.inboxes.erase(found);
    }
}

void UdpSockets::dropRtp()
{
    for (unsigned i = 0; i < batches * packetsPerBatch; ++i)
    {
        char byte = 0;
        if (::recv(rtp_, &byte, sizeof(byte), MSG_DONTWAIT | MSG_TRUNC) < 0)
        {
            return;
        }
    }
}

void UdpSockets::readRtcp()
{
    std::array<std::array<std::uint8_t, rtcpRoom>, packetsPerBatch> rooms;
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
        const int count = ::recvmmsg(rtcp_, messages.data(), packetsPerBatch, MSG_DONTWAIT, nullptr);
        for (int i = 0; i < count; ++i)
        {
            const auto index = static_cast<std::size_t>(i);
            if (const auto inbox = find(senders[index]))
            {
                inbox->onRtcp(rooms[index].data(), messages[index].msg_len);
            }
        }
        if (count < static_cast<int>(packetsPerBatch))
        {
            return;
        }
    }
}

UdpSockets::Shard& UdpSockets::shardOf(const UdpAddress& client)
{
    return shards_[client.hash() % shards_.size()];
}

std::shared_ptr<TransportInbox> UdpSockets::find(const UdpAddress& client)
{
    Shard& shard = shardOf(client);
    const std::lock_guard<std::mutex> guard(shard.mutex);
    const auto found = shard.inboxes.find(client);
    return found == shard.inboxes.end() ? nullptr : found->second;
}

}  // namespace refhost
