#include <gmock/gmock.h>

#include "refhost/rtp/RtpReader.h"
#include "tests/refhost/ingest/client/NetworkClient.h"
#include "tests/refhost/rtsp/connection/RtspServerFixture.h"

namespace refhost
{
namespace
{

using test::CollectedEvents;

/// Reads this project's own server over loopback.
class RtspClientServerTest : public test::RtspServerFixture
{
protected:
    void play(const std::string& login, const std::string& path = "orv/live/1/0")
    {
        std::string location = url(path);
        location.insert(location.find("//") + 2, login);
        reader.start(location);
    }

    test::NetworkClient reader;
    CollectedEvents& events = reader.events;
};

TEST_F(RtspClientServerTest, LogsInAndPlays)
{
    config.users = {{"admin", "s3@cret/ :%41"}};
    start();
    play("admin:s3%40cret%2F%20%3A%2541@");
    ASSERT_TRUE(events.waitPlaying()) << events.end().text;
    ASSERT_EQ(events.described().size(), 2U);
    EXPECT_EQ(events.described()[0].encodingName, "H264");
    frame(true);
    ASSERT_TRUE(events.waitPackets(3));
    for (const auto& packet : events.packets())
    {
        RtpPacketView view;
        EXPECT_TRUE(packet.report ||
                    RtpReader::read(reinterpret_cast<const std::uint8_t*>(packet.bytes.data()),
                                    packet.bytes.size(), view));
    }
    EXPECT_TRUE(reader.stopAndWait());
    EXPECT_TRUE(eventually([] { return dispatched() == 0; }));
}

TEST_F(RtspClientServerTest, PlaysOverUdp)
{
    reader.options.transport = CameraTransport::udp;
    start();
    play("");
    ASSERT_TRUE(events.waitPlaying()) << events.end().text;
    frame(true);
    ASSERT_TRUE(events.waitPackets(3));
    for (const auto& packet : events.packets())
    {
        EXPECT_TRUE(RtpReader::hasHeader(reinterpret_cast<const std::uint8_t*>(packet.bytes.data()),
                                         packet.bytes.size()));
    }
    EXPECT_TRUE(reader.stopAndWait());
    EXPECT_TRUE(eventually([] { return dispatched() == 0; }));
}

TEST_F(RtspClientServerTest, AWrongPasswordEndsItAsUnauthorized)
{
    config.users = {{"admin", "secret"}};
    start();
    play("admin:wrong@");
    ASSERT_TRUE(events.waitEnded());
    EXPECT_EQ(events.end().kind, RtspClientEnd::Kind::unauthorized);
    EXPECT_EQ(events.end().status, 401);
    EXPECT_EQ(events.end().text, "wrong password or user name");
}

TEST_F(RtspClientServerTest, AStreamThatIsNotThereEndsItAsNotFound)
{
    start();
    play("", "orv/live/7/7");
    ASSERT_TRUE(events.waitEnded());
    EXPECT_EQ(events.end().kind, RtspClientEnd::Kind::notFound);
    EXPECT_EQ(events.end().status, 404);
}

TEST_F(RtspClientServerTest, TheEndOfTheServerEndsIt)
{
    start();
    play("");
    ASSERT_TRUE(events.waitPlaying());
    server = nullptr;
    ASSERT_TRUE(events.waitEnded());
    EXPECT_EQ(events.end().kind, RtspClientEnd::Kind::endedByCamera);
}

}  // namespace
}  // namespace refhost
