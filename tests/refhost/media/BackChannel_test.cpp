#include "refhost/media/BackChannel.h"

#include <gtest/gtest.h>

namespace refhost
{
namespace
{

TEST(BackChannel, EveryCodecHasTheSameTrackIdAndFlag)
{
    for (const Codec codec : {Codec::pcmu, Codec::pcma, Codec::aac, Codec::opus})
    {
        const auto track = backChannelOf(codec);
        ASSERT_TRUE(track.has_value());
        EXPECT_EQ("trackID=talk", track->trackId);
        EXPECT_EQ("audio", track->mediaType);
        EXPECT_TRUE(track->getAudioBackInfoFlag());
        // RFC 7587, section 7: two for Opus, whatever is sent.
        EXPECT_EQ(codec == Codec::opus ? 2 : 1, track->channels);
    }
}

TEST(BackChannel, CodecsHaveTheirPayloadTypesAndClocks)
{
    EXPECT_EQ("PCMU", backChannelOf(Codec::pcmu)->encodingName);
    EXPECT_EQ(0, backChannelOf(Codec::pcmu)->payloadType);
    EXPECT_EQ(8000, backChannelOf(Codec::pcmu)->clockRate);
    EXPECT_EQ("PCMA", backChannelOf(Codec::pcma)->encodingName);
    EXPECT_EQ(8, backChannelOf(Codec::pcma)->payloadType);
    EXPECT_EQ(8000, backChannelOf(Codec::pcma)->clockRate);
    EXPECT_EQ("MPEG4-GENERIC", backChannelOf(Codec::aac)->encodingName);
    EXPECT_GE(backChannelOf(Codec::aac)->payloadType, 96);
    EXPECT_EQ(16000, backChannelOf(Codec::aac)->clockRate);
    EXPECT_NE(std::string::npos, backChannelOf(Codec::aac)->formatParameters.find("config=1408"));
    EXPECT_EQ("opus", backChannelOf(Codec::opus)->encodingName);
    EXPECT_GE(backChannelOf(Codec::opus)->payloadType, 96);
    EXPECT_EQ(48000, backChannelOf(Codec::opus)->clockRate);
}

TEST(BackChannel, WithoutACodecThereIsNoTrack)
{
    EXPECT_FALSE(backChannelOf(std::nullopt).has_value());
}

TEST(BackChannel, VideoCodecsHaveNoTalkBack)
{
    EXPECT_FALSE(backChannelOf(Codec::h264).has_value());
    EXPECT_FALSE(backChannelOf(Codec::h265).has_value());
}

}  // namespace
}  // namespace refhost
