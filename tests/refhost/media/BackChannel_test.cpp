#include "refhost/media/BackChannel.h"

#include <gtest/gtest.h>

namespace refhost
{
namespace
{

TEST(BackChannel, EveryCodecIsMarkedAndNamedAlike)
{
    for (const char* const codec : {"pcmu", "pcma", "aac"})
    {
        const auto track = backChannelOf(codec);
        ASSERT_TRUE(track.has_value());
        EXPECT_EQ("trackID=talk", track->trackId);
        EXPECT_EQ("audio", track->mediaType);
        EXPECT_TRUE(track->getAudioBackInfoFlag());
        EXPECT_EQ(1, track->channels);
    }
}

TEST(BackChannel, CodecsHaveTheirPayloadTypesAndClocks)
{
    EXPECT_EQ("PCMU", backChannelOf("pcmu")->encodingName);
    EXPECT_EQ(0, backChannelOf("pcmu")->payloadType);
    EXPECT_EQ(8000, backChannelOf("pcmu")->clockRate);
    EXPECT_EQ("PCMA", backChannelOf("pcma")->encodingName);
    EXPECT_EQ(8, backChannelOf("pcma")->payloadType);
    EXPECT_EQ(8000, backChannelOf("pcma")->clockRate);
    EXPECT_EQ("MPEG4-GENERIC", backChannelOf("aac")->encodingName);
    EXPECT_GE(backChannelOf("aac")->payloadType, 96);
    EXPECT_EQ(16000, backChannelOf("aac")->clockRate);
    EXPECT_NE(std::string::npos, backChannelOf("aac")->formatParameters.find("config=1408"));
}

TEST(BackChannel, WithoutACodecThereIsNone)
{
    EXPECT_FALSE(backChannelOf("none").has_value());
    EXPECT_FALSE(backChannelOf("").has_value());
}

}  // namespace
}  // namespace refhost
