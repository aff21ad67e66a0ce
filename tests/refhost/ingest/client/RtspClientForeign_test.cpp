#include <gmock/gmock.h>
#include <gst/gst.h>

#include <algorithm>

#include "refhost/rtp/RtpReader.h"
#include "tests/refhost/capture/ForeignCamera.h"
#include "tests/refhost/ingest/client/NetworkClient.h"

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

    test::NetworkClient reader;
    CollectedEvents& events = reader.events;
};

TEST_F(RtspClientForeignTest, Plays)
{
    const ForeignCamera camera(GST_RTSP_LOWER_TRANS_TCP);
    reader.start(camera.url());
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
    EXPECT_TRUE(reader.stopAndWait());
}

TEST_F(RtspClientForeignTest, ACameraThatSendsOverUdpAloneIsReadOverUdp)
{
    const ForeignCamera camera(GST_RTSP_LOWER_TRANS_UDP);
    reader.start(camera.url());
    ASSERT_TRUE(events.waitPlaying()) << events.end().text;
    ASSERT_TRUE(events.waitPackets(50));
    EXPECT_TRUE(reader.stopAndWait());
}

TEST_F(RtspClientForeignTest, ACameraThatRefusesUdpIsReadOverTcp)
{
    const ForeignCamera camera(GST_RTSP_LOWER_TRANS_TCP);
    reader.options.transport = CameraTransport::udp;
    reader.start(camera.url());
    ASSERT_TRUE(events.waitPlaying()) << events.end().text;
    ASSERT_TRUE(events.waitPackets(50));
}

}  // namespace
}  // namespace refhost
