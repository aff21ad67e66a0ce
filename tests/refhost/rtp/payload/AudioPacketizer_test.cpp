#include "refhost/rtp/payload/AudioPacketizer.h"

#include <gtest/gtest.h>

#include "tests/refhost/base/Nanoseconds.h"
#include "tests/refhost/rtp/payload/PayloadFixture.h"

namespace refhost
{
namespace
{

using test::Bytes;
using test::pack;
using test::payloadOf;

EncodedUnit audio(Codec codec, const Bytes& bytes)
{
    MediaFormat format;
    format.codec = codec;
    format.sampleRate = infoOf(codec).clockRate;
    format.channels = 1;
    EncodedUnit unit;
    unit.format = std::make_shared<const MediaFormat>(format);
    unit.bytes = bytes;
    unit.captureTime = test::instantOf(5'000'000'000);
    unit.keyFrame = true;
    return unit;
}

TEST(AudioPacketizer, ABlockThatFitsIsOnePacket)
{
    const auto packetizer = Packetizer::make(Codec::pcmu, 3);
    const auto made = pack(*packetizer, audio(Codec::pcmu, {1, 2, 3}), 50);
    ASSERT_EQ(made.size(), 1U);
    EXPECT_EQ(payloadOf(*made[0], 0), (Bytes{1, 2, 3}));
    EXPECT_EQ(made[0]->rtpTimestamp, 50U);
    EXPECT_TRUE(made[0]->keyFrame);
    EXPECT_EQ(test::nsOf(made[0]->captureTime), 5'000'000'000);
}

TEST(AudioPacketizer, ALargerBlockIsSeveralUnitsWithTheirOwnTimes)
{
    const auto packetizer = Packetizer::make(Codec::pcma, 160);
    const auto made = pack(*packetizer, audio(Codec::pcma, test::counted(400)), 0xffffff00);
    ASSERT_EQ(made.size(), 3U);
    EXPECT_EQ(made[1]->rtpTimestamp, 0xffffffa0U);
    EXPECT_EQ(made[2]->rtpTimestamp, 0x40U);
    EXPECT_EQ(test::nsOf(made[2]->captureTime), 5'040'000'000);
    EXPECT_EQ(payloadOf(*made[2], 0).size(), 80U);
}

TEST(AudioPacketizer, AnOpusPacketIsNotSplit)
{
    const auto packetizer = Packetizer::make(Codec::opus, 3);
    EXPECT_EQ(pack(*packetizer, audio(Codec::opus, {0xf8, 1, 2})).size(), 1U);
    std::vector<std::shared_ptr<AccessUnit>> made;
    EXPECT_STREQ(packetizer->pack(audio(Codec::opus, {0xf8, 1, 2, 3}), 0, made),
                 "an Opus packet is larger than a packet of this transport may be");
    EXPECT_STREQ(packetizer->pack(audio(Codec::opus, {0x03}), 0, made), "not a whole number of samples");
    EXPECT_TRUE(made.empty());
}

TEST(AudioPacketizer, AnyPayloadSizeBringsTheWholeBlock)
{
    for (int payloadSize = 0; payloadSize <= 401; ++payloadSize)
    {
        const auto packetizer = Packetizer::make(Codec::pcmu, payloadSize);
        Bytes all;
        for (const auto& unit : pack(*packetizer, audio(Codec::pcmu, test::counted(400))))
        {
            const Bytes payload = payloadOf(*unit, 0);
            EXPECT_LE(payload.size(), std::max<std::size_t>(static_cast<std::size_t>(payloadSize), 1));
            all.insert(all.end(), payload.begin(), payload.end());
        }
        ASSERT_EQ(all, test::counted(400)) << payloadSize;
    }
}

}  // namespace
}  // namespace refhost
