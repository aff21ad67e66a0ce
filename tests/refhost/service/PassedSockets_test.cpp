#include "refhost/service/PassedSockets.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>

namespace refhost
{
namespace
{

constexpr int first = 3;

Descriptor listener(const std::string& address)
{
    const SocketAddress any = *SocketAddress::parse(address);
    Descriptor socket(::socket(any.family(), SOCK_STREAM, 0));
    EXPECT_EQ(0, ::bind(socket.get(), any.get(), any.size()));
    EXPECT_EQ(0, ::listen(socket.get(), 1));
    return socket;
}

/// Passes sockets to this process as a service manager does.
class PassedSocketsTest : public testing::Test
{
protected:
    /// \param names  as LISTEN_FDNAMES has them; null: the manager gives none
    void pass(std::vector<Descriptor> sockets, const char* names)
    {
        // First beyond the places that they get.
        for (Descriptor& socket : sockets)
        {
            socket = Descriptor(::fcntl(socket.get(), F_DUPFD, 100));
        }
        for (std::size_t i = 0; i < sockets.size(); ++i)
        {
            ASSERT_EQ(first + static_cast<int>(i), ::dup2(sockets[i].get(), first + static_cast<int>(i)));
        }
        ::setenv("LISTEN_PID", std::to_string(::getpid()).c_str(), 1);
        ::setenv("LISTEN_FDS", std::to_string(sockets.size()).c_str(), 1);
        ::unsetenv("LISTEN_FDNAMES");
        if (names != nullptr)
        {
            ::setenv("LISTEN_FDNAMES", names, 1);
        }
    }
    void pass(Descriptor socket, const char* names)
    {
        std::vector<Descriptor> sockets;
        sockets.push_back(std::move(socket));
        pass(std::move(sockets), names);
    }

    PassedSockets read()
    {
        return PassedSockets::fromEnvironment({"rtsp", "rtsps"}, problems_);
    }

    static bool isOpen(int descriptor)
    {
        return ::fcntl(descriptor, F_GETFD) >= 0;
    }

    std::vector<std::string> problems_;
};

TEST_F(PassedSocketsTest, AreFoundByName)
{
    std::vector<Descriptor> sockets;
    sockets.push_back(listener("127.0.0.1"));
    sockets.push_back(listener("::1"));
    const int plain = SocketAddress::localOf(sockets[0].get()).port();
    pass(std::move(sockets), "rtsp:rtsps");
    PassedSockets passed = read();
    EXPECT_EQ("127.0.0.1", passed.address("rtsp")->text());
    EXPECT_EQ(plain, passed.address("rtsp")->port());
    EXPECT_EQ("::1", passed.address("rtsps")->text());
    EXPECT_FALSE(passed.address("http"));
    EXPECT_TRUE(problems_.empty());
    const Descriptor taken = passed.take("rtsps");
    EXPECT_EQ("::1", SocketAddress::localOf(taken.get()).text());
    EXPECT_FALSE(passed.address("rtsps"));
    EXPECT_FALSE(passed.take("rtsps"));
}

TEST_F(PassedSocketsTest, StayInThisProcessAndDoNotBlock)
{
    pass(listener("127.0.0.1"), "rtsp");
    PassedSockets passed = read();
    const Descriptor socket = passed.take("rtsp");
    EXPECT_EQ(FD_CLOEXEC, ::fcntl(socket.get(), F_GETFD));
    EXPECT_NE(0, ::fcntl(socket.get(), F_GETFL) & O_NONBLOCK);
    EXPECT_EQ(nullptr, std::getenv("LISTEN_PID"));
    EXPECT_EQ(nullptr, std::getenv("LISTEN_FDS"));
    EXPECT_EQ(nullptr, std::getenv("LISTEN_FDNAMES"));
}

TEST_F(PassedSocketsTest, SingleOneNeedsNoName)
{
    for (const char* const name : {static_cast<const char*>(nullptr), "", "ovrtspd.socket", "unknown"})
    {
        pass(listener("127.0.0.1"), name);
        EXPECT_TRUE(read().address("rtsp"));
        EXPECT_TRUE(problems_.empty());
    }
}

TEST_F(PassedSocketsTest, ThoseOfAnotherProcessAreLeftAlone)
{
    for (const std::string& receiver : {std::to_string(::getpid() + 1), std::string(), std::string("me")})
    {
        pass(listener("127.0.0.1"), "rtsp");
        ::setenv("LISTEN_PID", receiver.c_str(), 1);
        EXPECT_FALSE(read().address("rtsp"));
        EXPECT_TRUE(isOpen(first));
    }
    EXPECT_TRUE(problems_.empty());
}

TEST_F(PassedSocketsTest, WhatIsNoListeningTcpSocketIsNamed)
{
    std::vector<Descriptor> sockets;
    sockets.emplace_back(::socket(AF_INET, SOCK_DGRAM, 0));
    sockets.emplace_back(::socket(AF_INET, SOCK_STREAM, 0));
    sockets.emplace_back(::socket(AF_UNIX, SOCK_STREAM, 0));
    sockets.emplace_back(::open("/dev/null", O_RDONLY));
    pass(std::move(sockets), "rtsp:rtsp:rtsp:rtsp");
    EXPECT_FALSE(read().address("rtsp"));
    ASSERT_EQ(4u, problems_.size());
    EXPECT_EQ(
        "the socket \"rtsp\" of the service manager is no listening TCP socket (ListenStream=) and is "
        "not used",
        problems_[0]);
    EXPECT_FALSE(isOpen(first));
    EXPECT_FALSE(isOpen(first + 3));
}

TEST_F(PassedSocketsTest, UnknownAndRepeatedNamesAreNamed)
{
    std::vector<Descriptor> sockets;
    for (int i = 0; i < 3; ++i)
    {
        sockets.push_back(listener("127.0.0.1"));
    }
    const int port = SocketAddress::localOf(sockets[1].get()).port();
    pass(std::move(sockets), "web\n:rtsp:rtsp");
    PassedSockets passed = read();
    EXPECT_EQ(port, passed.address("rtsp")->port());
    ASSERT_EQ(2u, problems_.size());
    EXPECT_EQ(
        "the socket \"web\\x0a\" of the service manager is not used: FileDescriptorName= must be one of "
        "rtsp, rtsps",
        problems_[0]);
    EXPECT_EQ(
        "the socket \"rtsp\" of the service manager is passed more than once; only the first one is used",
        problems_[1]);
}

TEST_F(PassedSocketsTest, WrongNumbersPassNothing)
{
    for (const char* const count : {"0", "-1", "many", "", "17", "99999999999999999999"})
    {
        pass(listener("127.0.0.1"), "rtsp");
        ::setenv("LISTEN_FDS", count, 1);
        EXPECT_FALSE(read().address("rtsp")) << count;
    }
}

TEST_F(PassedSocketsTest, DescriptorThatIsNotOpenIsNamed)
{
    pass(listener("127.0.0.1"), "rtsp");
    ::close(first);
    EXPECT_FALSE(read().address("rtsp"));
    EXPECT_EQ(1u, problems_.size());
}

}  // namespace
}  // namespace refhost
