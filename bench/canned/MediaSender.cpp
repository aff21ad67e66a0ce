#include "bench/canned/MediaSender.h"

#include <netinet/udp.h>
#include <sys/uio.h>

#include <algorithm>
#include <cstring>

namespace rtspcanned
{
namespace
{

constexpr std::size_t maxSegments = 64;
constexpr std::size_t maxMessageBytes = 65'000;

/// Where a run of equal packets, the last of which may be shorter, ends.
std::size_t runEnd(const std::vector<CannedUnit::Packet>& packets, std::size_t first)
{
    const std::size_t size = packets[first].size;
    const std::size_t limit = std::min(first + std::min(maxSegments, maxMessageBytes / size), packets.size());
    std::size_t end = first + 1;
    while (end < limit && packets[end - 1].size == size && packets[end].size <= size)
    {
        ++end;
    }
    return end;
}

}  // namespace

void MediaSender::load(CannedUnit& unit)
{
    unit_ = &unit;
    const std::size_t packetCount = unit.packets.size();
    messages_.assign(packetCount, {});
    vectors_.assign(packetCount, {});
    controls_.assign(packetCount, {});
    std::size_t count = 0;
    for (std::size_t at = 0; at < unit.packets.size(); ++count)
    {
        const std::size_t end = runEnd(unit.packets, at);
        const CannedUnit::Packet& last = unit.packets[end - 1];
        vectors_[count] = {&unit.datagrams[unit.packets[at].offset],
                           last.offset + last.size - unit.packets[at].offset};
        msghdr& message = messages_[count].msg_hdr;
        message.msg_iov = &vectors_[count];
        message.msg_iovlen = 1;
        if (end - at > 1)
        {
            message.msg_control = controls_[count].bytes;
            message.msg_controllen = sizeof controls_[count].bytes;
            cmsghdr* const control = CMSG_FIRSTHDR(&message);
            control->cmsg_level = IPPROTO_UDP;
            control->cmsg_type = UDP_SEGMENT;
            control->cmsg_len = CMSG_LEN(sizeof(std::uint16_t));
            const auto segment = static_cast<std::uint16_t>(unit.packets[at].size);
            std::memcpy(CMSG_DATA(control), &segment, sizeof segment);
        }
        at = end;
    }
    messages_.resize(count);
}

void MediaSender::sendDatagrams(int udp, const sockaddr_in* client)
{
    for (mmsghdr& message : messages_)
    {
        message.msg_hdr.msg_name = const_cast<sockaddr_in*>(client);
        message.msg_hdr.msg_namelen = client == nullptr ? 0 : sizeof *client;
    }
    (void)sendmmsg(udp, messages_.data(), static_cast<unsigned>(messages_.size()), MSG_DONTWAIT);
}

bool MediaSender::sendFramed(int tcp, std::string_view before)
{
    iovec vectors[2] = {{const_cast<char*>(before.data()), before.size()},
                        {unit_->framed.data(), unit_->framed.size()}};
    msghdr message{};
    message.msg_iov = before.empty() ? vectors + 1 : vectors;
    message.msg_iovlen = before.empty() ? 1 : 2;
    return sendmsg(tcp, &message, MSG_DONTWAIT | MSG_NOSIGNAL) ==
           static_cast<ssize_t>(before.size() + unit_->framed.size());
}

}  // namespace rtspcanned
