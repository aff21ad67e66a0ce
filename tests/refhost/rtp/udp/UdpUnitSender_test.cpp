#include "refhost/rtp/udp/UdpUnitSender.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <deque>
#include <vector>

#include "tests/refhost/rtp/RtpFakes.h"

namespace refhost
{
namespace test
{
namespace
{

const RtpHeaderFields header{1, 100, 2, 96};

/// An idle UDP socket, to query the system's options.
struct UnusedSocket
{
    ~UnusedSocket()
    {
        ::close(descriptor);
    }

    const int descriptor = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
};

/// A sender whose system calls return scripted results: messages taken, or -errno.
class ScriptedSender : private UnusedSocket, public UdpUnitSender
{
public:
    explicit ScriptedSender(bool segmentation = false) : UdpUnitSender(descriptor, segmentation) {}

    std::deque<int> answers;  ///< when empty, everything is taken
    int calls = 0;
    std::vector<std::uint16_t> sequences;  ///< of the first packet of each message taken
    std::vector<bool> segmented;           ///< for each call: whether its first message was segmented

protected:
    int sendMessages(mmsghdr* messages, unsigned count) override
    {
        ++calls;
        segmented.push_back(messages[0].msg_hdr.msg_controllen > 0);
        int taken = static_cast<int>(count);
        if (!answers.empty())
        {
            taken = std::min(taken, answers.front());
            answers.pop_front();
        }
        if (taken < 0)
        {
            errno = -taken;
            return -1;
        }
        for (int i = 0; i < taken; ++i)
        {
            const auto* packet = static_cast<const std::uint8_t*>(messages[i].msg_hdr.msg_iov->iov_base);
            sequences.push_back(static_cast<std::uint16_t>(packet[2] << 8U | packet[3]));
        }
        return taken;
    }
};

TEST(UdpUnitSender, FullSocketReportsHowManyPacketsItTook)
{
    ScriptedSender sender;
    sender.answers = {3, -EAGAIN};
    const auto unit = makeUnit(0, 0, true, 10);
    SendResult result = sender.send(SocketAddress(), unit, 0, header);
    EXPECT_EQ(SendStatus::congested, result.status);
    EXPECT_EQ(3U, result.packets);
    RtpHeaderFields remaining = header;
    remaining.sequence = 103;
    result = sender.send(SocketAddress(), unit, 3, remaining);
    EXPECT_EQ(SendStatus::sent, result.status);
    EXPECT_EQ(7U, result.packets);
    std::vector<std::uint16_t> all(10);
    for (std::size_t i = 0; i < all.size(); ++i)
    {
        all[i] = static_cast<std::uint16_t>(100 + i);
    }
    EXPECT_EQ(all, sender.sequences);
}

TEST(UdpUnitSender, LackOfMemoryIsCongestion)
{
    for (const int error : {EAGAIN, EWOULDBLOCK, ENOBUFS, ENOMEM})
    {
        ScriptedSender sender;
        sender.answers = {-error};
        const SendResult result = sender.send(SocketAddress(), makeUnit(0, 0, true, 2), 0, header);
        EXPECT_EQ(SendStatus::congested, result.status) << error;
        EXPECT_EQ(0U, result.packets) << error;
    }
}

TEST(UdpUnitSender, AnInterruptedCallIsMadeAgain)
{
    ScriptedSender sender;
    sender.answers = {-EINTR, -EINTR};
    EXPECT_EQ(SendStatus::sent, sender.send(SocketAddress(), makeUnit(0, 0, true, 2), 0, header).status);
    EXPECT_EQ(3, sender.calls);
}

TEST(UdpUnitSender, RefusedPacketsAreLostWithoutMoreCalls)
{
    for (const int error : {ECONNREFUSED, EPERM, ENETUNREACH, EHOSTUNREACH, EACCES, EINVAL, EBADF})
    {
        ScriptedSender sender;
        sender.answers = {2, -error};
        const SendResult result = sender.send(SocketAddress(), makeUnit(0, 0, true, 100), 0, header);
        EXPECT_EQ(SendStatus::sent, result.status) << error;
        EXPECT_EQ(100U, result.packets) << error;
        EXPECT_EQ(2, sender.calls) << error;
    }
}

TEST(UdpUnitSender, RefusedSegmentsAreGivenUpForGood)
{
    for (const int error : {EIO, EINVAL, EOPNOTSUPP, ENOPROTOOPT})
    {
        ScriptedSender sender(true);
        ASSERT_TRUE(sender.segmentation());
        // 100 packets are three messages; the first is sent, then the device refuses.
        sender.answers = {1, -error};
        const auto unit = makeUnit(0, 0, true, 100);
        const SendResult result = sender.send(SocketAddress(), unit, 0, header);
        EXPECT_EQ(SendStatus::sent, result.status) << error;
        EXPECT_EQ(100U, result.packets) << error;
        EXPECT_FALSE(sender.segmentation()) << error;
        // One message of 47 packets, and each of the other 53 by itself.
        ASSERT_EQ(54U, sender.sequences.size()) << error;
        EXPECT_EQ(100, sender.sequences[0]);
        EXPECT_EQ(147, sender.sequences[1]);
        EXPECT_EQ(199, sender.sequences[53]);
        sender.segmented.clear();
        sender.send(SocketAddress(), unit, 0, header);
        EXPECT_EQ(0, std::count(sender.segmented.begin(), sender.segmented.end(), true)) << error;
    }
}

TEST(UdpUnitSender, UnrelatedErrorKeepsSegments)
{
    ScriptedSender sender(true);
    sender.answers = {-EINVAL, -EINVAL};
    EXPECT_EQ(SendStatus::sent, sender.send(SocketAddress(), makeUnit(0, 0, true, 9), 0, header).status);
    EXPECT_TRUE(sender.segmentation());
    EXPECT_EQ(2, sender.calls);
}

TEST(UdpUnitSender, NarrowPathKeepsSegmentsForOtherClients)
{
    ScriptedSender sender(true);
    sender.answers = {-EMSGSIZE};
    EXPECT_EQ(9U, sender.send(SocketAddress(), makeUnit(0, 0, true, 9), 0, header).packets);
    EXPECT_EQ(9U, sender.sequences.size());
    EXPECT_TRUE(sender.segmentation());
}

}  // namespace
}  // namespace test
}  // namespace refhost
