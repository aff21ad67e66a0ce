#include "refhost/net/TcpLiveness.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <chrono>
#include <string>
#include <thread>

#include "refhost/base/Descriptor.h"

namespace refhost
{
namespace
{

/// A connection over loopback.
class TcpLivenessTest : public testing::Test
{
protected:
    static constexpr std::chrono::seconds timeout{60};

    TcpLivenessTest()
    {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        auto* const any = reinterpret_cast<sockaddr*>(&address);
        TcpLiveness::configure(listener_.get(), timeout);
        EXPECT_EQ(0, ::bind(listener_.get(), any, size));
        EXPECT_EQ(0, ::listen(listener_.get(), 1));
        EXPECT_EQ(0, ::getsockname(listener_.get(), any, &size));
        const int small = 4096;
        EXPECT_EQ(0, ::setsockopt(client_.get(), SOL_SOCKET, SO_RCVBUF, &small, sizeof small));
        EXPECT_EQ(0, ::connect(client_.get(), any, size));
        server_ = Descriptor(::accept4(listener_.get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
    }

    int option(int name) const
    {
        int value = 0;
        socklen_t size = sizeof value;
        EXPECT_EQ(0, ::getsockopt(server_.get(), IPPROTO_TCP, name, &value, &size));
        return value;
    }

    /// Milliseconds since anything arrived from the client, including answers to probes.
    std::int64_t lastAnswerMs() const
    {
        tcp_info info{};
        socklen_t size = sizeof info;
        EXPECT_EQ(0, ::getsockopt(server_.get(), IPPROTO_TCP, TCP_INFO, &info, &size));
        return info.tcpi_last_ack_recv;
    }

    /// Sends until both buffers are full.
    void fill() const
    {
        const std::string bytes(65536, 'x');
        while (::send(server_.get(), bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL) > 0)
        {
        }
    }

    Descriptor listener_{::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)};
    Descriptor client_{::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)};
    Descriptor server_{-1};
};

TEST_F(TcpLivenessTest, DeadIdlePeerIsDetectedWithinTheTimeout)
{
    EXPECT_LT(option(TCP_KEEPIDLE) + option(TCP_KEEPINTVL) * option(TCP_KEEPCNT), timeout.count());
    EXPECT_EQ(0, option(TCP_USER_TIMEOUT))
        << "it would end a connection to a peer that answers and has no room";
}

TEST_F(TcpLivenessTest, IdlePeerIsSilentSinceItsLastAnswer)
{
    constexpr std::chrono::milliseconds wait(50);
    const auto start = std::chrono::steady_clock::now();
    while (TcpLiveness::silence(server_.get()).value_or(wait) < wait &&
           std::chrono::steady_clock::now() - start < std::chrono::seconds(10))
    {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    EXPECT_GE(TcpLiveness::silence(server_.get()).value_or(-wait), wait);
}

TEST_F(TcpLivenessTest, PeerWithAZeroWindowThatAnswersIsNotSilent)
{
    fill();
    // Bytes in flight are acknowledged first; then the intervals between window probes grow.
    constexpr std::int64_t rareMs = 200;
    const auto start = std::chrono::steady_clock::now();
    while (lastAnswerMs() < rareMs && std::chrono::steady_clock::now() - start < std::chrono::seconds(10))
    {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    ASSERT_GE(lastAnswerMs(), rareMs);
    EXPECT_EQ(TcpLiveness::silence(server_.get()), std::chrono::milliseconds(0));
}

TEST_F(TcpLivenessTest, ClosedConnectionHasNoSilence)
{
    const linger now{1, 0};
    ::setsockopt(client_.get(), SOL_SOCKET, SO_LINGER, &now, sizeof now);
    client_ = Descriptor();
    const auto start = std::chrono::steady_clock::now();
    while (TcpLiveness::silence(server_.get()) &&
           std::chrono::steady_clock::now() - start < std::chrono::seconds(10))
    {
        std::this_thread::yield();
    }
    EXPECT_FALSE(TcpLiveness::silence(server_.get()).has_value());
    EXPECT_FALSE(TcpLiveness::silence(-1).has_value());
}

}  // namespace
}  // namespace refhost
