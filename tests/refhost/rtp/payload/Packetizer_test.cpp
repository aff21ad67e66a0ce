#include "refhost/rtp/payload/Packetizer.h"

#include <gtest/gtest.h>

#include "tests/refhost/rtp/payload/PayloadFixture.h"

namespace refhost
{
namespace
{

MediaFormat audioFormat(Codec codec, int sampleRate, int channels)
{
    MediaFormat format;
    format.codec = codec;
    format.sampleRate = sampleRate;
    format.channels = channels;
    return format;
}

TEST(Packetizer, UnitsOfAnotherCodecAndEmptyOnesAreRefused)
{
    const auto packetizer = Packetizer::make(Codec::pcmu, 100);
    EncodedUnit unit;
    std::vector<std::shared_ptr<AccessUnit>> made;
    EXPECT_STREQ(packetizer->pack(unit, 0, made), "a unit of another codec");
    unit.format = std::make_shared<const MediaFormat>(audioFormat(Codec::pcma, 8000, 1));
    EXPECT_STREQ(packetizer->pack(unit, 0, made), "a unit of another codec");
    unit.format = std::make_shared<const MediaFormat>(audioFormat(Codec::pcmu, 8000, 1));
    EXPECT_STREQ(packetizer->pack(unit, 0, made), "an empty unit");
    EXPECT_TRUE(made.empty());
}

TEST(Packetizer, DescribesAudioByItsPayloadType)
{
    SubMediaInfo track;
    ASSERT_TRUE(Packetizer::describe(audioFormat(Codec::pcma, 8000, 1), "trackID=1", track));
    EXPECT_EQ(track.trackId, "trackID=1");
    EXPECT_EQ(track.mediaType, "audio");
    EXPECT_EQ(track.encodingName, "PCMA");
    EXPECT_EQ(track.payloadType, 8);
    EXPECT_EQ(track.clockRate, 8000);
    EXPECT_EQ(track.channels, 1);
    EXPECT_EQ(track.bitRate, 64);
    EXPECT_EQ(track.formatParameters, "");
}

TEST(Packetizer, DescribesOpusWithItsChannels)
{
    SubMediaInfo track;
    ASSERT_TRUE(Packetizer::describe(audioFormat(Codec::opus, 48000, 1), "trackID=1", track));
    EXPECT_EQ(track.channels, 2);
    EXPECT_EQ(track.formatParameters, "sprop-maxcapturerate=48000;sprop-stereo=0");
    ASSERT_TRUE(Packetizer::describe(audioFormat(Codec::opus, 48000, 2), "trackID=1", track));
    EXPECT_EQ(track.formatParameters, "sprop-maxcapturerate=48000;sprop-stereo=1");
}

}  // namespace
}  // namespace refhost
