#include <gmock/gmock.h>
#include <gst/gst.h>

#include <algorithm>

#include "refhost/ingest/client/RtspClient.h"
#include "refhost/net/TcpConnector.h"
#include "refhost/rtp/RtpReader.h"
#include "tests/refhost/capture/ForeignCamera.h"
#include "tests/refhost/ingest/client/ScriptedCamera.h"

namespace refhost
{
namespace
{

using test::CollectedEvents;

/// Reads a server of another make over loopback TCP.
class RtspClientForeignTest : public testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        gst_init(nullptr, nullptr);
    }

    ~RtspClientForeignTest() override
    {
        runOn(loop, [&] { client = nullptr; });
    }

    void start(const std::string& url)
    {
        runOn(loop,
              [&]
              {
                  client = std::make_unique<RtspClient>(loop, connector, url, RtspClientOptions(), events);
                  client->start();
              });
    }

    EventLoop loop{"client"};
    HostResolver resolver;
    TcpConnector connector{resolver};
    CollectedEvents events;
    std::unique_ptr<RtspClient> client;
};

TEST_F(RtspClientForeignTest, Plays)
{
    const ForeignCamera camera(GST_RTSP_LOWER_TRANS_TCP);
    start(camera.url());
    ASSERT_TRUE(events.waitPlaying()) << events.end().text;
    ASSERT_EQ(events.described().size(), 2U);
    EXPECT_EQ(events.described()[0].encodingName, "H264");
    EXPECT_EQ(events.described()[0].payloadType, 100);
    EXPECT_EQ(events.described()[1].encodingName, "PCMU");
    ASSERT_TRUE(events.waitPackets(50));
    const auto infos = events.playing();
    ASSERT_EQ(infos.size(), 2U);
    for (const CameraPlayInfo& info : infos)
    {
        const auto packets = events.packets();
        const auto first =
            std::find_if(packets.begin(), packets.end(),
                         [&](const auto& each) { return !each.report && each.track == info.track; });
        ASSERT_NE(first, packets.end());
        RtpPacketView view;
        ASSERT_TRUE(RtpReader::read(reinterpret_cast<const std::uint8_t*>(first->bytes.data()),
                                    first->bytes.size(), view));
        EXPECT_EQ(view.sequence, info.sequence);
        EXPECT_TRUE(info.timestamp.has_value());
    }
    Signal closed;
    runOn(loop, [&] { client->stop([&] { closed.set(); }); });
    EXPECT_TRUE(closed.wait());
}

TEST_F(RtspClientForeignTest, ACameraThatSendsOverUdpAloneHasNoUsableTransport)
{
    const ForeignCamera camera(GST_RTSP_LOWER_TRANS_UDP);
    start(camera.url());
    ASSERT_TRUE(events.waitEnded());
    EXPECT_EQ(events.end().kind, RtspClientEnd::Kind::noUsableTransport);
    EXPECT_EQ(events.end().status, 461);
}

}  // namespace
}  // namespace refhost
