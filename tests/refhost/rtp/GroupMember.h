#pragma once

#include <gtest/gtest.h>
#include <net/if.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <vector>

#include "refhost/base/Descriptor.h"
#include "refhost/base/SocketAddress.h"
#include "refhost/rtp/multicast/MulticastGroup.h"

namespace refhost
{
namespace test
{

/// A member of a group at the loopback interface of this machine.
class GroupMember
{
public:
    using Bytes = std::vector<std::uint8_t>;

    GroupMember(const MulticastGroup& group, int port) : address_(addressOf(group, port))
    {
        const int yes = 1;
        EXPECT_EQ(0, setsockopt(socket_.get(), SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes));
        EXPECT_EQ(0, ::bind(socket_.get(), address_.get(), address_.size()));
        ip_mreqn request{};
        request.imr_multiaddr.s_addr = htonl(group.address);
        request.imr_ifindex = static_cast<int>(if_nametoindex("lo"));
        EXPECT_EQ(0, setsockopt(socket_.get(), IPPROTO_IP, IP_ADD_MEMBERSHIP, &request, sizeof request));
        EXPECT_EQ(0, setsockopt(socket_.get(), IPPROTO_IP, IP_MULTICAST_IF, &request, sizeof request));
    }

    /// Ports that no other test's process is likely to use at the same time.
    static int firstPort()
    {
        return 20000 + static_cast<int>(getpid() % 5000) * 8;
    }

    static SocketAddress addressOf(const MulticastGroup& group, int port)
    {
        return *SocketAddress::parse(group.addressText(), port);
    }

    /// Waits for something to read, with a bound.
    static bool waitReadable(int descriptor)
    {
        constexpr int boundMs = 5000;
        pollfd waiting{descriptor, POLLIN, 0};
        return poll(&waiting, 1, boundMs) == 1;
    }

    /// The next packet. \returns nothing when none comes
    Bytes receive()
    {
        SocketAddress from;
        return receive(from);
    }

    /// \param[out] from  who sent it
    Bytes receive(SocketAddress& from)
    {
        Bytes packet(2000);
        if (!waitReadable(socket_.get()))
        {
            return {};
        }
        socklen_t room = SocketAddress::room;
        const auto size = ::recvfrom(socket_.get(), packet.data(), packet.size(), 0, from.fill(), &room);
        packet.resize(size < 0 ? 0 : static_cast<std::size_t>(size));
        return packet;
    }

    /// Receives the waiting packets. \returns how many
    std::size_t waiting()
    {
        std::size_t count = 0;
        Bytes packet(2000);
        while (::recv(socket_.get(), packet.data(), packet.size(), MSG_DONTWAIT) > 0)
        {
            ++count;
        }
        return count;
    }

    void send(const Bytes& packet)
    {
        EXPECT_EQ(static_cast<ssize_t>(packet.size()),
                  ::sendto(socket_.get(), packet.data(), packet.size(), 0, address_.get(), address_.size()));
    }

private:
    Descriptor socket_{::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
    const SocketAddress address_;
};

}  // namespace test
}  // namespace refhost
