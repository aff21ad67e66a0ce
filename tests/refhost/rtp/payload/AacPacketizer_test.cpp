#include "refhost/rtp/payload/AacPacketizer.h"

#include <gtest/gtest.h>

#include "tests/refhost/rtp/payload/H264Units.h"

namespace refhost
{
namespace
{

using test::Bytes;
using test::counted;
using test::described;
using test::pack;
using test::payloadsOf;
using test::Reception;

EncodedUnit block(const Bytes& bytes)
{
    MediaFormat format;
    format.codec = Codec::aac;
    format.sampleRate = 16000;
    format.channels = 1;
    format.codecData = {0x14, 0x08};
    EncodedUnit unit;
    unit.format = std::make_shared<const MediaFormat>(format);
    unit.bytes = bytes;
    unit.keyFrame = true;
    return unit;
}

TEST(AacPacketizer, AUnitThatFitsIsAPacket)
{
    const auto packetizer = Packetizer::make(Codec::aac, 7);
    const auto made = pack(*packetizer, block({1, 2, 3}), 8);
    EXPECT_EQ(payloadsOf(*made[0]), (std::vector<Bytes>{{0, 16, 0, 24, 1, 2, 3}}));
    EXPECT_TRUE(test::markerOf(*made[0], 0));
    EXPECT_TRUE(made[0]->keyFrame);
    EXPECT_EQ(made[0]->rtpTimestamp, 8U);
}

TEST(AacPacketizer, ALargerUnitIsFragmented)
{
    const auto packetizer = Packetizer::make(Codec::aac, 6);
    const auto made = pack(*packetizer, block({1, 2, 3}));
    EXPECT_EQ(payloadsOf(*made[0]), (std::vector<Bytes>{{0, 16, 0, 24, 1, 2}, {0, 16, 0, 24, 3}}));
    EXPECT_FALSE(test::markerOf(*made[0], 0));
    EXPECT_TRUE(test::markerOf(*made[0], 1));
}

TEST(AacPacketizer, EveryPayloadSizeBringsTheUnitBack)
{
    SubMediaInfo track;
    ASSERT_TRUE(Packetizer::describe(*block({1}).format, "trackID=1", track));
    for (int payloadSize = 1; payloadSize <= 1500; payloadSize += payloadSize < 50 ? 1 : 29)
    {
        const auto packetizer = Packetizer::make(Codec::aac, payloadSize);
        Reception reception(described("MPEG4-GENERIC", 16000, {{"mode", "AAC-hbr"}, {"config", "1408"}}));
        const std::vector<std::size_t> sizes{1, 2, 45, 300, 1495, 1496, 1497, 8191};
        for (std::size_t i = 0; i < sizes.size(); ++i)
        {
            const auto made =
                pack(*packetizer, block(counted(sizes[i])), static_cast<std::uint32_t>(i * 1024));
            reception.pushAll(*made[0]);
        }
        ASSERT_EQ(reception.units.size(), sizes.size());
        for (std::size_t i = 0; i < sizes.size(); ++i)
        {
            ASSERT_EQ(reception.units[i].bytes, counted(sizes[i])) << payloadSize;
        }
    }
}

TEST(AacPacketizer, AUnitWhoseSizeDoesNotFitTheFieldIsRefused)
{
    const auto packetizer = Packetizer::make(Codec::aac, 1400);
    std::vector<std::shared_ptr<AccessUnit>> made;
    EXPECT_STREQ(packetizer->pack(block(counted(8192)), 0, made), "a unit of AAC with more than 8191 bytes");
}

TEST(AacPacketizer, DescribesTheTrackByItsConfig)
{
    SubMediaInfo track;
    ASSERT_TRUE(Packetizer::describe(*block({1}).format, "trackID=1", track));
    EXPECT_EQ(track.encodingName, "MPEG4-GENERIC");
    EXPECT_EQ(track.clockRate, 16000);
    EXPECT_EQ(track.channels, 1);
    EXPECT_EQ(track.payloadType, 97);
    EXPECT_EQ(track.formatParameters,
              "streamtype=5;profile-level-id=41;mode=AAC-hbr;config=1408;sizelength=13;indexlength=3;"
              "indexdeltalength=3");
    MediaFormat without = *block({1}).format;
    without.codecData.clear();
    EXPECT_FALSE(Packetizer::describe(without, "trackID=1", track));
}

}  // namespace
}  // namespace refhost
