#include "refhost/rtp/udp/UdpUnitSender.h"

#include <netinet/udp.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <vector>

#include "refhost/rtp/RtpHeaderPatch.h"

#ifndef UDP_SEGMENT
#define UDP_SEGMENT 103  // older C libraries lack the kernel's option
#endif

namespace refhost
{
namespace
{

/// The kernel's UDP_MAX_SEGMENTS, and what one UDP message holds over IPv4 and IPv6.
constexpr std::size_t maxSegments = 64;
constexpr std::size_t maxMessageBytes = 65'487;
constexpr std::size_t messagesPerCall = 16;

/// This thread's copy of the last unit it sent, packets back to back.
struct DatagramScratch
{
    AccessUnitPtr unit;
    std::vector<std::uint8_t> bytes;
    std::vector<std::size_t> offsets;

    void load(const AccessUnitPtr& requested)
    {
        if (unit == requested)
        {
            return;
        }
        bytes.clear();
        offsets.clear();
        for (const AccessUnit::Packet& packet : requested->packets)
        {
            offsets.push_back(bytes.size());
            const std::uint8_t* from = requested->bytes.data() + packet.offset;
            bytes.insert(bytes.end(), from, from + packet.size);
        }
        unit = requested;
    }
};

/// The messages of one system call.
class Batch
{
public:
    /// Fills the batch with packets of the scratch from `first` on. \returns the number of messages
    unsigned fill(DatagramScratch& scratch, std::size_t first, const SocketAddress& client, bool segmented)
    {
        const auto& packets = scratch.unit->packets;
        unsigned count = 0;
        for (std::size_t at = first; at < packets.size() && count < messagesPerCall; ++count)
        {
            const std::size_t end = segmented ? runEnd(packets, at) : at + 1;
            const std::size_t size = scratch.offsets[end - 1] + packets[end - 1].size - scratch.offsets[at];
            describe(count, scratch.bytes.data() + scratch.offsets[at], size, client,
                     end - at > 1 ? packets[at].size : 0);
            packetsOf_[count] = end - at;
            at = end;
        }
        return count;
    }

    mmsghdr* messages()
    {
        return messages_.data();
    }

    std::size_t packetsOf(unsigned message) const
    {
        return packetsOf_[message];
    }

private:
    static std::size_t runEnd(const std::vector<AccessUnit::Packet>& packets, std::size_t first)
    {
        const std::size_t size = packets[first].size;
        const std::size_t max = std::min(maxSegments, maxMessageBytes / size);
        std::size_t end = first + 1;
        while (end < packets.size() && end - first < max && packets[end].size == size)
        {
            ++end;
        }
        // The last segment may be short.
        if (end < packets.size() && end - first < max && packets[end].size < size)
        {
            ++end;
        }
        return end;
    }

    void describe(unsigned index, std::uint8_t* bytes, std::size_t size, const SocketAddress& client,
                  std::uint32_t segment)
    {
        vectors_[index] = {bytes, size};
        msghdr& message = messages_[index].msg_hdr;
        message = {};
        message.msg_name = const_cast<sockaddr*>(client.get());
        message.msg_namelen = client.size();
        message.msg_iov = &vectors_[index];
        message.msg_iovlen = 1;
        if (segment == 0)
        {
            return;
        }
        message.msg_control = controls_[index].bytes;
        message.msg_controllen = CMSG_SPACE(sizeof(std::uint16_t));
        cmsghdr* control = CMSG_FIRSTHDR(&message);
        control->cmsg_level = IPPROTO_UDP;
        control->cmsg_type = UDP_SEGMENT;
        control->cmsg_len = CMSG_LEN(sizeof(std::uint16_t));
        const std::uint16_t value = static_cast<std::uint16_t>(segment);
        std::memcpy(CMSG_DATA(control), &value, sizeof(value));
    }

    struct alignas(cmsghdr) Control
    {
        std::uint8_t bytes[CMSG_SPACE(sizeof(std::uint16_t))];
    };

    std::array<mmsghdr, messagesPerCall> messages_;
    std::array<iovec, messagesPerCall> vectors_;
    std::array<Control, messagesPerCall> controls_;
    std::array<std::size_t, messagesPerCall> packetsOf_;
};

bool fullForNow(int error)
{
    return error == EAGAIN || error == EWOULDBLOCK || error == ENOBUFS || error == ENOMEM;
}

/// The errors of a kernel or network device that cannot segment, at all or on this path.
bool refusesSegments(int error)
{
    return error == EIO || error == EINVAL || error == EOPNOTSUPP || error == EMSGSIZE ||
           error == ENOPROTOOPT;
}

}  // namespace

UdpUnitSender::UdpUnitSender(int descriptor, bool segmentation)
    : descriptor_(descriptor), segmentation_(segmentation)
{
    int none = 0;
    if (segmentation && setsockopt(descriptor, IPPROTO_UDP, UDP_SEGMENT, &none, sizeof(none)) != 0)
    {
        segmentation_.store(false);
    }
}

SendResult UdpUnitSender::send(const SocketAddress& client, const AccessUnitPtr& unit,
                               std::size_t firstPacket, const RtpHeaderFields& header)
{
    thread_local DatagramScratch scratch;
    scratch.load(unit);
    const std::size_t total = unit->packets.size();
    std::uint16_t sequence = header.sequence;
    for (std::size_t i = firstPacket; i < total; ++i)
    {
        patchRtpHeader(scratch.bytes.data() + scratch.offsets[i], header, sequence++);
    }

    bool segmented = segmentation();
    bool refused = false;
    Batch batch;
    std::size_t at = firstPacket;
    while (at < total)
    {
        const unsigned count = batch.fill(scratch, at, client, segmented);
        const int sent = sendMessages(batch.messages(), count);
        if (sent >= 0)
        {
            for (int i = 0; i < sent; ++i)
            {
                at += batch.packetsOf(static_cast<unsigned>(i));
            }
            // Only success without segments proves that segmentation was the cause.
            if (refused)
            {
                segmentation_.store(false, std::memory_order_relaxed);
                refused = false;
            }
            continue;
        }
        const int error = errno;
        if (error == EINTR)
        {
            continue;
        }
        if (fullForNow(error))
        {
            return {SendStatus::congested, at - firstPacket};
        }
        if (!segmented || !refusesSegments(error))
        {
            break;
        }
        segmented = false;
        // Too big for this client's path only: the system fragments single packets.
        refused = error != EMSGSIZE;
    }
    return {SendStatus::sent, total - firstPacket};
}

int UdpUnitSender::sendMessages(mmsghdr* messages, unsigned count)
{
    return ::sendmmsg(descriptor_, messages, count, MSG_DONTWAIT | MSG_NOSIGNAL);
}

}  // namespace refhost
