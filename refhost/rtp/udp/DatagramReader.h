#pragma once
// Tested by tests/refhost/rtp/udp/UdpServer_test.cpp.

#include <sys/socket.h>

#include <array>
#include <cstddef>
#include <cstdint>

#include "refhost/base/SocketAddress.h"

namespace refhost
{

/// Reads what waits at a UDP socket, a bounded number of datagrams a call, so that a flood of them does not
/// keep an event loop from everything else.
class DatagramReader
{
public:
    /// Calls `take(sender, data, size)` with each whole datagram.
    /// \param socket  read without waiting
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
    static constexpr unsigned packetsPerBatch = 32;
    /// No packet of a client is longer than an Ethernet frame; a longer one was never meant for us.
    static constexpr std::size_t packetRoom = 1500;
};

}  // namespace refhost
