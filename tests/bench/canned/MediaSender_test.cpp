#include "bench/canned/MediaSender.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace rtspcanned
{
namespace
{

using testing::ElementsAre;

CannedUnit unitOf(const std::vector<std::size_t>& sizes)
{
    CannedUnit unit;
    for (const std::size_t size : sizes)
    {
        const std::vector<std::uint8_t> packet(size, static_cast<std::uint8_t>(size));
        unit.append(packet.data(), packet.size());
    }
    return unit;
}

TEST(MediaSender, DatagramsArriveInTheSizesOfThePackets)
{
    const int receiver = socket(AF_INET, SOCK_DGRAM, 0);
    const int sender = socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    ASSERT_EQ(bind(receiver, reinterpret_cast<sockaddr*>(&address), length), 0);
    ASSERT_EQ(getsockname(receiver, reinterpret_cast<sockaddr*>(&address), &length), 0);
    CannedUnit unit = unitOf({20, 1300, 1300, 700, 1300, 1400, 30});
    MediaSender media;
    media.load(unit);
    media.sendDatagrams(sender, &address);
    std::vector<ssize_t> sizes;
    std::array<std::uint8_t, 2000> buffer;
    for (ssize_t size = 0; (size = recv(receiver, buffer.data(), buffer.size(), MSG_DONTWAIT)) > 0;)
    {
        sizes.push_back(size);
        EXPECT_EQ(buffer[0], static_cast<std::uint8_t>(size));
    }
    EXPECT_THAT(sizes, ElementsAre(20, 1300, 1300, 700, 1300, 1400, 30));
    close(receiver);
    close(sender);
}

TEST(MediaSender, FramedPacketsFollowTheTextInOneWrite)
{
    std::array<int, 2> pair{};
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET, 0, pair.data()), 0);
    CannedUnit unit = unitOf({20, 30});
    MediaSender media;
    media.load(unit);
    EXPECT_TRUE(media.sendFramed(pair[0], "text"));
    std::array<char, 2000> buffer;
    const ssize_t size = recv(pair[1], buffer.data(), buffer.size(), MSG_DONTWAIT);
    ASSERT_EQ(size, 4 + 24 + 34);
    EXPECT_EQ(std::string(buffer.data(), 5), "text$");
    close(pair[0]);
    close(pair[1]);
}

TEST(MediaSender, AConnectionThatTakesNoWholeUnitIsOfNoUse)
{
    std::array<int, 2> pair{};
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, pair.data()), 0);
    CannedUnit unit = unitOf(std::vector<std::size_t>(2000, 1400));
    MediaSender media;
    media.load(unit);
    EXPECT_FALSE(media.sendFramed(pair[0], {}));
    close(pair[0]);
    close(pair[1]);
}

}  // namespace
}  // namespace rtspcanned
