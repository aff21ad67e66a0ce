#pragma once
// Tested by tests/refhost/rtp/udp/UdpServer_test.cpp.

#include <sys/socket.h>

#include <array>
#include <cstddef>
#include <cstdint>

#include "refhost/base/SocketAddress.h"

namespace refhost
{

/// Reads the datagrams waiting at a UDP socket, a bounded number per call, so that a flood does not block the
/// event loop.
/// \tparam packetRoom       bytes of the longest datagram that is read; longer ones are dropped
/// \tparam packetsPerBatch  that are read with one system call; their rooms are on the stack
template <std::size_t packetRoom, unsigned packetsPerBatch>
class BoundedDatagramReader
{
public:
    /// Calls `take(sender, data, size)` with each whole datagram.
    /// \param socket  read without blocking
    template <typename Take>
    static void read(int socket, const Take& take)
    {
        std::array<std::array<std::uint8_t, packetRoom>, packetsPerBatch> rooms;
        std::array<SocketAddress, packetsPerBatch> senders;
        std::array<iovec, packetsPerBatch> vectors;
        std::array<mmsghdr, packetsPerBatch> messages;
        for (unsigned batch = 0; batch < batches; ++batch)
        {
            for (unsigned i = 0; i < packetsPerBatch; ++i)
            {
                vectors[i] = {rooms[i].data(), rooms[i].size()};
                messages[i] = {};
                messages[i].msg_hdr.msg_name = senders[i].fill();
                messages[i].msg_hdr.msg_namelen = SocketAddress::room;
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

private:
    static constexpr unsigned batches = 4;
};

/// For clients, whose packets fit an Ethernet frame.
using DatagramReader = BoundedDatagramReader<1500, 32>;

}  // namespace refhost
