#include "refhost/media/GstCodec.h"

#include <gtest/gtest.h>

#include "refhost/capture/EncoderLine.h"
#include "refhost/capture/MediaSource.h"
#include "refhost/media/LaunchBin.h"

namespace refhost
{
namespace
{

class GstCodecTest : public testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        gst_init(nullptr, nullptr);
    }

    static std::optional<Codec> of(const char* caps)
    {
        return GstCodec::of(GstValuePtr<GstCaps>(gst_caps_from_string(caps)).get());
    }

    static bool accepts(const std::vector<Codec>& configured, const char* caps, bool byRtp = false)
    {
        const GstValuePtr<GstCaps> media(gst_caps_from_string(caps));
        return gst_caps_can_intersect(GstCodec::acceptedCaps(configured, byRtp).get(), media.get());
    }

    static bool canBeMade(const std::string& line)
    {
        std::string error;
        GstElement* const bin = makeLaunchBin(line, UnlinkedPads::ghosted, error);
        EXPECT_NE(bin, nullptr) << line << ": " << error;
        if (bin != nullptr)
        {
            gst_object_unref(gst_object_ref_sink(bin));
        }
        return bin != nullptr;
    }
};

TEST_F(GstCodecTest, FindsTheCodecOfCaps)
{
    EXPECT_EQ(of("video/x-h264,stream-format=byte-stream"), Codec::h264);
    EXPECT_EQ(of("video/x-h265"), Codec::h265);
    EXPECT_EQ(of("audio/mpeg,mpegversion=4,stream-format=adts"), Codec::aac);
    EXPECT_EQ(of("audio/x-mulaw,rate=8000,channels=1"), Codec::pcmu);
    EXPECT_EQ(of("audio/x-alaw,rate=8000,channels=1"), Codec::pcma);
}

TEST_F(GstCodecTest, MediaThatMustBeTranscodedHaveNoCodec)
{
    for (const char* const caps :
         {"audio/mpeg,mpegversion=1", "audio/x-mulaw,rate=16000,channels=1",
          "audio/x-alaw,rate=8000,channels=2", "video/x-vp8", "video/x-raw", "EMPTY"})
    {
        EXPECT_FALSE(of(caps).has_value()) << caps;
    }
    EXPECT_FALSE(GstCodec::of(nullptr).has_value());
}

TEST_F(GstCodecTest, PassThroughCodecsAreAcceptedWhateverIsConfigured)
{
    for (const char* const caps :
         {"video/x-h264", "video/x-h265", "audio/mpeg,mpegversion=4,stream-format=raw",
          "audio/x-mulaw,rate=8000,channels=1", "video/x-raw", "audio/x-raw"})
    {
        EXPECT_TRUE(accepts({}, caps)) << caps;
    }
    EXPECT_FALSE(accepts({Codec::h264}, "video/x-vp8"));
    EXPECT_FALSE(accepts({Codec::pcmu}, "audio/x-mulaw,rate=16000,channels=1"));
}

TEST_F(GstCodecTest, OpusIsAcceptedOnlyWhenConfigured)
{
    const char* const stereo = "audio/x-opus,channel-mapping-family=0,channels=2";
    EXPECT_EQ(of(stereo), Codec::opus);
    EXPECT_TRUE(accepts({Codec::h264, Codec::opus}, stereo));
    EXPECT_FALSE(accepts({Codec::h264, Codec::pcmu}, stereo));
    EXPECT_FALSE(accepts({Codec::opus}, "audio/x-opus,channel-mapping-family=1,channels=6"));
}

TEST_F(GstCodecTest, JpegIsAcceptedOnlyOverRtpWhenConfigured)
{
    EXPECT_EQ(of("image/jpeg,width=320"), Codec::mjpeg);
    EXPECT_TRUE(accepts({Codec::mjpeg}, "image/jpeg", true));
    EXPECT_FALSE(accepts({Codec::mjpeg}, "image/jpeg", false)) << "its Huffman tables may be others";
    EXPECT_FALSE(accepts({Codec::h264}, "image/jpeg", true));
}

TEST_F(GstCodecTest, ElementsOfEveryCodecCanBeCreated)
{
    for (const Codec codec : allCodecs)
    {
        EXPECT_TRUE(canBeMade(GstCodec::parserLine(codec) + " ! " + GstCodec::payloaderLine(codec)));
        EXPECT_TRUE(canBeMade(isVideo(codec) ? bareVideoEncoderLine(codec, StreamConfig())
                                             : audioEncoderLine(codec)));
        EXPECT_EQ(of(infoOf(codec).caps), codec);
    }
}

}  // namespace
}  // namespace refhost
