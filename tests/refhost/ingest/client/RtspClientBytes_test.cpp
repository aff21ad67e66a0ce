#include <gmock/gmock.h>

#include "tests/refhost/ingest/client/ScriptedCamera.h"

namespace refhost
{
namespace
{

using namespace std::chrono_literals;
using test::ClientWorld;
using test::ScriptedCamera;

/// All that a camera sends in a session with media, in advance.
std::string wholeSession()
{
    const std::string description = ClientWorld::twoTracks;
    return "RTSP/1.0 401 Unauthorized\r\nCSeq: 1\r\nWWW-Authenticate: Digest realm=\"r\", nonce=\"n\"\r\n\r\n"
           "RTSP/1.0 200 OK\r\nCSeq: 2\r\nPublic: OPTIONS, GET_PARAMETER\r\n\r\n"
           "RTSP/1.0 200 OK\r\nCSeq: 3\r\nContent-Type: application/sdp\r\nContent-Length: " +
           std::to_string(description.size()) + "\r\n\r\n" + description +
           "RTSP/1.0 200 OK\r\nCSeq: 4\r\nSession: 1\r\nTransport: RTP/AVP/TCP;interleaved=0-1\r\n\r\n"
           "RTSP/1.0 200 OK\r\nCSeq: 5\r\nSession: 1\r\nTransport: RTP/AVP/TCP;interleaved=2-3\r\n\r\n"
           "RTSP/1.0 200 OK\r\nCSeq: 6\r\nRTP-Info: url=track1;seq=1;rtptime=2\r\n\r\n" +
           ScriptedCamera::packet(0, std::string(1'400, 'v')) + ScriptedCamera::packet(3, "report") +
           "OPTIONS * RTSP/1.0\r\nCSeq: 1\r\n\r\n" + ScriptedCamera::packet(2, "audio");
}

TEST(RtspClientBytes, ASessionIsReadHoweverItsBytesArrive)
{
    for (const std::size_t atOnce :
         {std::size_t{1}, std::size_t{2}, std::size_t{7}, std::size_t{1'000}, std::size_t{65'536}})
    {
        ClientWorld world(atOnce);
        const auto camera = world.startAndAccept();
        camera->send(wholeSession());
        ASSERT_TRUE(world.events.waitPackets(3)) << atOnce;
        const auto packets = world.events.packets();
        EXPECT_EQ(packets[0].bytes, std::string(1'400, 'v'));
        EXPECT_EQ(packets[1].bytes, "report");
        EXPECT_TRUE(packets[1].report);
        EXPECT_EQ(packets[1].track, 1U);
        EXPECT_EQ(packets[2].bytes, "audio");
        EXPECT_EQ(world.events.playing()[0].sequence, 1);
    }
}

TEST(RtspClientBytes, EveryPrefixOfASessionEnds)
{
    const std::string session = wholeSession();
    const std::size_t media = session.find('$');
    for (std::size_t size = 0; size<session.size(); size += size> media && size < media + 1'390 ? 97 : 1)
    {
        ClientWorld world;
        world.options.teardownTimeout = 1ms;
        const auto camera = world.startAndAccept();
        world.connector.refuse("no more");
        camera->send(session.substr(0, size));
        camera->stream().endWriting();
        ASSERT_TRUE(world.events.waitEnded()) << size;
        EXPECT_EQ(world.events.end().kind, size <= media && world.events.playing().empty()
                                               ? RtspClientEnd::Kind::unreachable
                                               : RtspClientEnd::Kind::endedByCamera)
            << size;
    }
}

}  // namespace
}  // namespace refhost
