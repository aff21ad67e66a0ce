#include "refhost/media/TrackDescription.h"

#include <gtest/gtest.h>

#include "refhost/media/GstHandles.h"

namespace refhost
{
namespace
{

class TrackDescriptionTest : public testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        gst_init(nullptr, nullptr);
    }

    bool describe(const std::string& rtp, const char* media = nullptr)
    {
        const GstValuePtr<GstCaps> rtpCaps(gst_caps_from_string(("application/x-rtp," + rtp).c_str()));
        const GstValuePtr<GstCaps> mediaCaps(media == nullptr ? nullptr : gst_caps_from_string(media));
        return describeTrack(rtpCaps.get(), mediaCaps.get(), "trackID=7", track);
    }

    SubMediaInfo track;
};

constexpr char h264[] =
    "media=(string)video,payload=(int)96,clock-rate=(int)90000,encoding-name=(string)H264,"
    "packetization-mode=(string)1,profile-level-id=(string)64001f,"
    "sprop-parameter-sets=(string)\"Z2Q=\\,aOs=\",ssrc=(uint)1,a-framerate=(string)25";

TEST_F(TrackDescriptionTest, H264HasModeProfileAndParameterSets)
{
    ASSERT_TRUE(describe(h264, "video/x-h264,width=1280,height=720,framerate=30000/1001"));
    EXPECT_EQ(track.trackId, "trackID=7");
    EXPECT_EQ(track.mediaType, "video");
    EXPECT_EQ(track.encodingName, "H264");
    EXPECT_EQ(track.payloadType, 96);
    EXPECT_EQ(track.clockRate, 90000);
    EXPECT_EQ(track.channels, 0);
    EXPECT_EQ(track.formatParameters,
              "packetization-mode=1;profile-level-id=64001f;sprop-parameter-sets=Z2Q=,aOs=");
    EXPECT_EQ(track.width, 1280);
    EXPECT_EQ(track.height, 720);
    EXPECT_NEAR(track.frameRate, 29.97, 0.001);
    EXPECT_FALSE(track.getAudioBackInfoFlag());
}

TEST_F(TrackDescriptionTest, SizeAndRateMayBeUnknown)
{
    ASSERT_TRUE(describe(h264));
    EXPECT_EQ(track.width, 0);
    EXPECT_EQ(track.frameRate, 0);
    ASSERT_TRUE(describe(h264, "video/x-h264,framerate=0/1"));
    EXPECT_EQ(track.frameRate, 0);
}

TEST_F(TrackDescriptionTest, VideoWithoutParameterSetsIsNotDescribed)
{
    EXPECT_FALSE(
        describe("media=(string)video,payload=(int)96,clock-rate=(int)90000,encoding-name=(string)H264,"
                 "packetization-mode=(string)1"));
    EXPECT_FALSE(
        describe("media=(string)video,payload=(int)96,clock-rate=(int)90000,encoding-name=(string)H265,"
                 "sprop-vps=(string)A"));
    EXPECT_EQ(track.trackId, "");
}

TEST_F(TrackDescriptionTest, H265HasThreeParameterSets)
{
    ASSERT_TRUE(
        describe("media=(string)video,payload=(int)96,clock-rate=(int)90000,encoding-name=(string)H265,"
                 "sprop-pps=(string)CC,sprop-sps=(string)\"BB=\",sprop-vps=(string)AA"));
    EXPECT_EQ(track.formatParameters, "sprop-vps=AA;sprop-sps=BB=;sprop-pps=CC");
}

TEST_F(TrackDescriptionTest, AacHasModeConfigAndHeaderSizes)
{
    ASSERT_TRUE(
        describe("media=(string)audio,payload=(int)97,clock-rate=(int)48000,"
                 "encoding-name=(string)MPEG4-GENERIC,encoding-params=(string)2,streamtype=(string)5,"
                 "profile-level-id=(string)2,mode=(string)AAC-hbr,config=(string)1190,"
                 "sizelength=(string)13,indexlength=(string)3,indexdeltalength=(string)3",
                 "audio/mpeg,channels=2,rate=48000"));
    EXPECT_EQ(track.formatParameters,
              "streamtype=5;profile-level-id=2;mode=AAC-hbr;config=1190;sizelength=13;"
              "indexlength=3;indexdeltalength=3");
    EXPECT_EQ(track.channels, 2);
    EXPECT_EQ(track.clockRate, 48000);
}

TEST_F(TrackDescriptionTest, PcmHasNoParametersAndAFixedRate)
{
    for (const char* name : {"PCMU", "PCMA"})
    {
        ASSERT_TRUE(describe(
            std::string("media=(string)audio,payload=(int)0,clock-rate=(int)8000,encoding-name=(string)") +
            name));
        EXPECT_EQ(track.formatParameters, "");
        EXPECT_EQ(track.channels, 1);
        EXPECT_EQ(track.bitRate, 64);
    }
}

TEST_F(TrackDescriptionTest, CapsOfNoTrackAreRefused)
{
    EXPECT_FALSE(describeTrack(nullptr, nullptr, "trackID=0", track));
    EXPECT_FALSE(describe("media=(string)video"));
    EXPECT_FALSE(describe("encoding-name=(string)PCMU,clock-rate=(int)8000"));
    EXPECT_FALSE(describe("media=(string)audio,encoding-name=(string)PCMU,clock-rate=(int)0"));
}

TEST_F(TrackDescriptionTest, DescriptionsAreComparedInEveryField)
{
    ASSERT_TRUE(describe(h264));
    const SubMediaInfo same = track;
    EXPECT_TRUE(sameDescription(track, same));
    SubMediaInfo other = track;
    other.formatParameters += "x";
    EXPECT_FALSE(sameDescription(track, other));
    other = track;
    other.setAudioBackInfoFlag(true);
    EXPECT_FALSE(sameDescription(track, other));
}

}  // namespace
}  // namespace refhost
