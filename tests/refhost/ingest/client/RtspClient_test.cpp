#include "refhost/ingest/client/RtspClient.h"

#include <gmock/gmock.h>

#include "tests/refhost/ingest/client/ScriptedCamera.h"

namespace refhost
{
namespace
{

using namespace std::chrono_literals;
using test::CameraRequest;
using test::ClientWorld;
using test::ScriptedCamera;
using testing::ElementsAre;
using Kind = RtspClientEnd::Kind;

TEST(RtspClient, DescribesSetsUpAndPlays)
{
    ClientWorld world;
    const auto camera = world.startAndAccept();
    EXPECT_THAT(world.connector.asked(), ElementsAre("camera.example:554"));

    EXPECT_EQ(camera->serve("OPTIONS").uri, "rtsp://camera.example/live?id=1");
    const CameraRequest describe =
        camera->serve("DESCRIBE", "Content-Base: rtsp://10.0.0.9/live/\r\n", ClientWorld::twoTracks);
    EXPECT_EQ(describe.uri, "rtsp://camera.example/live?id=1");
    EXPECT_EQ(describe.header("Accept"), "application/sdp");
    EXPECT_EQ(describe.header("Authorization"), "");

    const CameraRequest video = camera->serve("SETUP", "Session: ab ; timeout=30\r\n");
    EXPECT_EQ(video.uri, "rtsp://camera.example/live/track1");
    EXPECT_EQ(video.header("Transport"), "RTP/AVP/TCP;unicast;interleaved=0-1");
    EXPECT_EQ(video.header("Session"), "");
    const CameraRequest audio = camera->serve("SETUP", "Session: ab\r\n");
    EXPECT_EQ(audio.uri, "rtsp://camera.example/live/track2");
    EXPECT_EQ(audio.header("Transport"), "RTP/AVP/TCP;unicast;interleaved=2-3");
    EXPECT_EQ(audio.header("Session"), "ab");
    const CameraRequest play = camera->serve(
        "PLAY", "RTP-Info: url=rtsp://10.0.0.9/live/track2;rtptime=77,url=track1;seq=5;rtptime=9\r\n");
    EXPECT_EQ(play.uri, "rtsp://camera.example/live/");
    EXPECT_EQ(play.header("Session"), "ab");

    ASSERT_TRUE(world.events.waitPlaying());
    const auto playing = world.events.playing();
    ASSERT_EQ(playing.size(), 2U);
    EXPECT_EQ(playing[0].track, 0U);
    EXPECT_EQ(playing[0].sequence, 5);
    EXPECT_EQ(playing[0].timestamp, 9U);
    EXPECT_EQ(playing[1].sequence, std::nullopt);
    EXPECT_EQ(playing[1].timestamp, 77U);

    camera->send(ScriptedCamera::packet(0, "video") + ScriptedCamera::packet(2, "audio") +
                 ScriptedCamera::packet(3, "report") + ScriptedCamera::packet(9, "nobody's"));
    ASSERT_TRUE(world.events.waitPackets(3));
    const auto packets = world.events.packets();
    EXPECT_EQ(packets[0].bytes, "video");
    EXPECT_EQ(packets[0].track, 0U);
    EXPECT_EQ(packets[1].bytes, "audio");
    EXPECT_EQ(packets[1].track, 1U);
    EXPECT_EQ(packets[2].bytes, "report");
    EXPECT_EQ(packets[2].track, 1U);
    EXPECT_TRUE(packets[2].report);

    runOn(world.loop, [&] { world.client->stop(); });
    EXPECT_EQ(camera->serve("TEARDOWN").header("Session"), "ab");
    EXPECT_TRUE(camera->waitClosed());
}

}  // namespace
}  // namespace refhost
