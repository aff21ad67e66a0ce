#include "refhost/ingest/IngestLoops.h"
#include "tests/refhost/capture/ForeignCamera.h"
#include "tests/refhost/capture/StreamFixture.h"

namespace refhost
{
namespace
{

using Description = StreamSource::Description;

/// What viewers get of another camera, whichever of the two readers reads it.
class CameraRelayTest : public StreamFixture, public testing::WithParamInterface<SourceConfig::Kind>
{
protected:
    CameraRelayTest()
    {
        gst_init(nullptr, nullptr);
        stream.source.kind = GetParam();
        options.makeRun = [this](SourceRun::Setup setup) { return loops_.start(std::move(setup)); };
    }

    ~CameraRelayTest() override
    {
        // Before the loops that read it.
        source.reset();
        streams.reset();
    }

private:
    IngestLoops loops_{1};
};

INSTANTIATE_TEST_SUITE_P(, CameraRelayTest,
                         testing::Values(SourceConfig::Kind::rtsp, SourceConfig::Kind::rtspGst),
                         [](const auto& reader)
                         { return reader.param == SourceConfig::Kind::rtsp ? "OwnReader" : "GStreamer"; });

TEST_P(CameraRelayTest, MediaOfACameraArePassedOn)
{
    const ForeignCamera camera(GST_RTSP_LOWER_TRANS_TCP);
    stream.source.location = camera.url();
    open();
    const auto video = watch("trackID=0");
    const auto audio = watch("trackID=1");
    ASSERT_EQ(describe(), Description::ready);
    ASSERT_EQ(tracks.size(), 2U);
    EXPECT_EQ(tracks[0].encodingName, "H264");
    EXPECT_EQ(tracks[0].payloadType, 96);
    EXPECT_EQ(tracks[0].width, 160);
    EXPECT_EQ(tracks[1].encodingName, "PCMU");
    ASSERT_TRUE(video->waitForUnits(11));
    ASSERT_TRUE(audio->waitForUnits(5));
    const std::vector<AccessUnitPtr> units = video->units();
    for (std::size_t i = 0; i < 11; ++i)
    {
        EXPECT_EQ(units[i]->keyFrame, i % 5 == 0) << i;
    }
    EXPECT_EQ(source->starts(), 1) << "it was read by the first means";
}

TEST_P(CameraRelayTest, AudioIsNotSetUpWhenNoneIsConfigured)
{
    const ForeignCamera camera(GST_RTSP_LOWER_TRANS_TCP);
    stream.source.location = camera.url();
    stream.audioCodec = std::nullopt;
    open();
    ASSERT_EQ(describe(), Description::ready);
    EXPECT_EQ(tracks.size(), 1U);
}

std::string jpegOf(int width, int height)
{
    return "videotestsrc is-live=true ! video/x-raw,format=I420,framerate=25/1,width=" +
           std::to_string(width) + ",height=" + std::to_string(height) +
           " ! jpegenc ! rtpjpegpay name=pay0 "
           "audiotestsrc is-live=true ! audio/x-raw,rate=48000,channels=1 ! opusenc ! rtpopuspay name=pay1 "
           "pt=98";
}

TEST_P(CameraRelayTest, JpegAndOpusArePassedOnWhenConfigured)
{
    const ForeignCamera camera(GST_RTSP_LOWER_TRANS_TCP, 0, jpegOf(160, 96));
    stream.source.location = camera.url();
    stream.videoCodec = Codec::mjpeg;
    stream.audioCodec = Codec::opus;
    open();
    const auto video = watch("trackID=0");
    const auto audio = watch("trackID=1");
    ASSERT_EQ(describe(), Description::ready);
    ASSERT_EQ(tracks.size(), 2U);
    EXPECT_EQ(tracks[0].encodingName, "JPEG");
    EXPECT_EQ(tracks[0].payloadType, 26);
    EXPECT_EQ(tracks[0].width, 160);
    EXPECT_EQ(tracks[0].height, 96);
    EXPECT_EQ(tracks[0].bitRate, 0) << "the camera's own";
    EXPECT_EQ(tracks[1].encodingName, "opus");
    EXPECT_EQ(tracks[1].clockRate, 48000);
    EXPECT_EQ(tracks[1].channels, 2);
    ASSERT_TRUE(video->waitForUnits(5));
    ASSERT_TRUE(audio->waitForUnits(5));
    for (const AccessUnitPtr& unit : video->units())
    {
        EXPECT_TRUE(unit->keyFrame);
    }
}

TEST_P(CameraRelayTest, JpegAndOpusAreTranscodedUnlessConfigured)
{
    const ForeignCamera camera(GST_RTSP_LOWER_TRANS_TCP, 0, jpegOf(160, 96));
    stream.source.location = camera.url();
    open();
    const auto video = watch("trackID=0");
    ASSERT_EQ(describe(), Description::ready);
    ASSERT_EQ(tracks.size(), 2U);
    EXPECT_EQ(tracks[0].encodingName, "H264");
    EXPECT_EQ(tracks[1].encodingName, "PCMU");
}

TEST_P(CameraRelayTest, JpegThatIsTooLargeForRtpIsRefused)
{
    const ForeignCamera camera(GST_RTSP_LOWER_TRANS_TCP, 0, jpegOf(2048, 64));
    stream.source.location = camera.url();
    stream.videoCodec = Codec::mjpeg;
    open();
    EXPECT_EQ(describe(), Description::failed);
}

TEST_P(CameraRelayTest, CameraWithoutTcpIsReadOverUdp)
{
    const ForeignCamera camera(GST_RTSP_LOWER_TRANS_UDP);
    stream.source.location = camera.url();
    open();
    // Viewers do not notice the change of transport.
    ASSERT_EQ(describe(), Description::ready);
    EXPECT_LE(source->starts(), GetParam() == SourceConfig::Kind::rtsp ? 1 : 3);
    const auto video = watch("trackID=0");
    ASSERT_TRUE(video->waitForUnits(30));
    const std::vector<AccessUnitPtr> units = video->units();
    for (std::size_t i = 1; i < units.size(); ++i)
    {
        EXPECT_NEAR(static_cast<double>(units[i]->rtpTimestamp - units[i - 1]->rtpTimestamp), 3600, 2) << i;
        EXPECT_GT(units[i]->captureTime, units[i - 1]->captureTime) << i;
    }
    EXPECT_LT(video->delays().back(), std::chrono::seconds(1));
    EXPECT_GT(video->delays().back(), std::chrono::milliseconds(-100));
}

TEST_P(CameraRelayTest, CameraThatReturnsIsPlayedAgain)
{
    auto camera = std::make_unique<ForeignCamera>(GST_RTSP_LOWER_TRANS_TCP);
    const int port = camera->port();
    stream.source.location = camera->url();
    open();
    const auto video = watch("trackID=0");
    ASSERT_TRUE(video->waitForUnits(3));
    camera.reset();
    ASSERT_TRUE(video->waitForDiscontinuities(1));
    const std::size_t before = video->units().size();
    camera = std::make_unique<ForeignCamera>(GST_RTSP_LOWER_TRANS_TCP, port);
    ASSERT_TRUE(video->waitForUnits(before + 3));
    EXPECT_TRUE(video->units()[before]->keyFrame);
}

TEST_P(CameraRelayTest, UnknownPathFails)
{
    const ForeignCamera camera(GST_RTSP_LOWER_TRANS_TCP);
    stream.source.location = camera.url() + "/nothing";
    open();
    EXPECT_EQ(describe(), Description::failed);
}

}  // namespace
}  // namespace refhost
