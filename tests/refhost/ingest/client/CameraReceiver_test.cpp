#include "refhost/ingest/client/CameraReceiver.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cstring>

#include "tests/refhost/ingest/client/ScriptedCamera.h"

namespace refhost
{
namespace
{

using Next = CameraReceiver::Next;
using test::ScriptedCamera;

/// What a receiver makes of bytes.
class Reading
{
public:
    /// \returns what the last next() said
    Next feed(std::string_view bytes, std::size_t atOnce = SIZE_MAX)
    {
        Next last = Next::incomplete;
        while (!bytes.empty() && last != Next::broken)
        {
            const CameraReceiver::Room room = receiver.room();
            EXPECT_GE(room.size, 1U);
            const std::size_t count = std::min({bytes.size(), atOnce, room.size});
            std::memcpy(room.bytes, bytes.data(), count);
            receiver.received(count);
            bytes.remove_prefix(count);
            last = drain();
            maxSeen = std::max(maxSeen, receiver.capacity());
        }
        return last;
    }

    Next drain()
    {
        for (;;)
        {
            const Next next = receiver.next();
            if (next == Next::packet)
            {
                packets.emplace_back(reinterpret_cast<const char*>(receiver.packet()), receiver.packetSize());
                channels.push_back(receiver.channel());
            }
            else if (next == Next::message)
            {
                bodies.push_back(receiver.message().body);
            }
            else
            {
                return next;
            }
        }
    }

    CameraReceiver receiver;
    std::vector<std::string> packets;
    std::vector<int> channels;
    std::vector<std::string> bodies;
    std::size_t maxSeen = 0;
};

constexpr const char* openHead = "RTSP/1.0 200 OK\r\nContent-Type: application/sdp\r\n\r\n";

TEST(CameraReceiver, PacketsAndMessagesMix)
{
    const std::string bytes = ScriptedCamera::packet(3, "one") +
                              "RTSP/1.0 200 OK\r\nContent-Length: 4\r\n\r\n$$$$" +
                              ScriptedCamera::packet(255, "two") + ScriptedCamera::packet(0, "");
    for (const std::size_t atOnce : {std::size_t{1}, std::size_t{3}, SIZE_MAX})
    {
        Reading reading;
        EXPECT_EQ(reading.feed(bytes, atOnce), Next::incomplete);
        EXPECT_THAT(reading.packets, testing::ElementsAre("one", "two"));
        EXPECT_THAT(reading.channels, testing::ElementsAre(3, 255));
        EXPECT_THAT(reading.bodies, testing::ElementsAre("$$$$"));
    }
}

TEST(CameraReceiver, MemoryFollowsWhatComesAtOnce)
{
    Reading reading;
    const std::string small = ScriptedCamera::packet(0, std::string(1'000, 'x'));
    for (int i = 0; i < 1'000; ++i)
    {
        reading.feed(small);
    }
    EXPECT_EQ(reading.maxSeen, CameraReceiver::firstRoom);
    std::string much;
    for (int i = 0; i < 1'000; ++i)
    {
        much += small;
    }
    reading.feed(much);
    EXPECT_EQ(reading.maxSeen, CameraReceiver::maxRoom);
    EXPECT_EQ(reading.packets.size(), 2'000U);
}

TEST(CameraReceiver, ThePacketsAndBodiesThatAreTheLargestAreTaken)
{
    Reading reading;
    const std::string packet = ScriptedCamera::packet(1, std::string(65'535, 'x'));
    reading.feed(
        packet + packet + "RTSP/1.0 200 OK\r\nContent-Length: 262144\r\n\r\n" + std::string(262'144, 'b'),
        10'000);
    EXPECT_EQ(reading.packets.size(), 2U);
    ASSERT_EQ(reading.bodies.size(), 1U);
    EXPECT_EQ(reading.bodies[0].size(), 262'144U);
    EXPECT_LE(reading.maxSeen, 262'144U + CameraReceiver::maxRoom);
    reading.feed(packet);
    EXPECT_LE(reading.receiver.capacity(), CameraReceiver::maxRoom);
}

TEST(CameraReceiver, ADescriptionWithoutLengthEndsBeforeWhatIsNoLineOfIt)
{
    for (const std::string& behind : {ScriptedCamera::packet(61, "x"), std::string("RTSP/1.0 200 OK\r\n\r\n"),
                                      std::string("OPTIONS * RTSP/1.0\r\n\r\n")})
    {
        for (const std::size_t atOnce : {std::size_t{1}, SIZE_MAX})
        {
            Reading reading;
            EXPECT_EQ(reading.feed(openHead + std::string("v=0\r\n\r\nm=x\r\n") + behind, atOnce),
                      Next::incomplete);
            ASSERT_FALSE(reading.bodies.empty());
            EXPECT_EQ(reading.bodies[0], "v=0\r\n\r\nm=x\r\n");
            EXPECT_EQ(reading.bodies.size() + reading.packets.size(), 2U);
        }
    }
}

TEST(CameraReceiver, ADescriptionWithoutLengthCanBeEnded)
{
    Reading reading;
    EXPECT_EQ(reading.feed(openHead + std::string("v=0\r\nm=x")), Next::openBody);
    reading.receiver.endBody();
    EXPECT_EQ(reading.receiver.message().body, "v=0\r\nm=x");
    EXPECT_EQ(reading.feed(ScriptedCamera::packet(0, "x")), Next::incomplete);
    EXPECT_EQ(reading.packets.size(), 1U);
}

TEST(CameraReceiver, ADescriptionWithoutLengthIsBounded)
{
    Reading reading;
    std::string lines;
    while (lines.size() <= CameraMessages::maxBodyBytes)
    {
        lines += "a=" + std::string(998, 'x') + "\n";
    }
    EXPECT_EQ(reading.feed(openHead + lines, 4'000), Next::broken);
    EXPECT_LE(reading.maxSeen, CameraMessages::maxBodyBytes + CameraReceiver::maxRoom);
}

TEST(CameraReceiver, LinesThatBelongToNothingAreSkippedUpToABound)
{
    Reading reading;
    EXPECT_EQ(reading.feed("a=rest of a body\r\nmore\n"), Next::incomplete);
    EXPECT_EQ(reading.feed(ScriptedCamera::packet(0, "x")), Next::incomplete);
    EXPECT_EQ(reading.packets.size(), 1U);
    Next last = Next::incomplete;
    std::size_t skipped = 0;
    while (last == Next::incomplete && skipped < 2 * CameraReceiver::maxSkippedBytes)
    {
        last = reading.feed("another line\r\n");
        skipped += 14;
    }
    EXPECT_EQ(last, Next::broken);
    EXPECT_LE(skipped, CameraReceiver::maxSkippedBytes);
}

}  // namespace
}  // namespace refhost
