#pragma once

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>

#include "refhost/base/Descriptor.h"
#include "refhost/base/SocketAddress.h"

namespace refhost
{
namespace test
{

/// Both ends of a TCP connection over loopback: `near` does not block, `far` blocks for 10 seconds at most.
struct LoopbackPair
{
    LoopbackPair()
    {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        auto* const any = reinterpret_cast<sockaddr*>(&address);
        const Descriptor listener(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
        EXPECT_EQ(0, ::bind(listener.get(), any, size));
        EXPECT_EQ(0, ::listen(listener.get(), 1));
        EXPECT_EQ(0, ::getsockname(listener.get(), any, &size));
        const timeval patience{10, 0};
        EXPECT_EQ(0, ::setsockopt(far.get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience));
        EXPECT_EQ(0, ::setsockopt(far.get(), SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience));
        EXPECT_EQ(0, ::connect(far.get(), any, size));
        near = Descriptor(::accept4(listener.get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
        peer = SocketAddress::localOf(far.get());
    }

    Descriptor near;
    Descriptor far{::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)};
    SocketAddress peer;  ///< of `near`
};

}  // namespace test
}  // namespace refhost
