#include <gtest/gtest.h>

#include "refhost/rtp/payload/NalPacketizer.h"
#include "tests/refhost/base/Nanoseconds.h"
#include "tests/refhost/rtp/payload/H264Units.h"

namespace refhost
{
namespace
{

using namespace test::h264;
using test::aggregate;
using test::Bytes;
using test::pack;
using test::payloadsOf;
using test::prefixed;
using test::Reception;

std::shared_ptr<const MediaFormat> format()
{
    return Reception(track(true)).depacketizer->format();
}

EncodedUnit frame(const std::vector<Bytes>& units, bool keyFrame)
{
    EncodedUnit unit;
    unit.format = format();
    unit.bytes = prefixed(units);
    unit.keyFrame = keyFrame;
    unit.captureTime = test::instantOf(77);
    return unit;
}

TEST(H264Packetizer, ASliceThatFitsIsAPacket)
{
    const auto packetizer = Packetizer::make(Codec::h264, 10);
    const auto made = pack(*packetizer, frame({delimiter, p(10), more(p(9)), filler}, false), 4711);
    ASSERT_EQ(made.size(), 1U);
    EXPECT_EQ(payloadsOf(*made[0]), (std::vector<Bytes>{p(10), more(p(9))}));
    EXPECT_FALSE(test::markerOf(*made[0], 0));
    EXPECT_TRUE(test::markerOf(*made[0], 1));
    EXPECT_EQ(made[0]->rtpTimestamp, 4711U);
    EXPECT_EQ(made[0]->payloadBytes, 19U);
    EXPECT_FALSE(made[0]->keyFrame);
    EXPECT_EQ(test::nsOf(made[0]->captureTime), 77);
}

TEST(H264Packetizer, ALargerSliceIsFragmented)
{
    const auto packetizer = Packetizer::make(Codec::h264, 5);
    const Bytes slice{0x41, 0xe0, 1, 2, 3, 4, 5, 6};
    const auto made = pack(*packetizer, frame({slice}, false));
    EXPECT_EQ(payloadsOf(*made[0]),
              (std::vector<Bytes>{{0x5c, 0x81, 0xe0, 1, 2}, {0x5c, 0x01, 3, 4, 5}, {0x5c, 0x41, 6}}));
}

TEST(H264Packetizer, ParameterSetsOfTheFormatPrecedeAKeyFrame)
{
    const auto packetizer = Packetizer::make(Codec::h264, 100);
    const auto made = pack(*packetizer, frame({recoveryPoint, idr()}, true));
    EXPECT_EQ(payloadsOf(*made[0]),
              (std::vector<Bytes>{aggregate({0x78}, {sps, pps, recoveryPoint}), idr()}));
    EXPECT_TRUE(made[0]->keyFrame);
}

TEST(H264Packetizer, ParameterSetsOfTheFrameAreKept)
{
    const auto packetizer = Packetizer::make(Codec::h264, 40);
    const auto made = pack(*packetizer, frame({otherSps, pps, idr()}, true));
    EXPECT_EQ(payloadsOf(*made[0]), (std::vector<Bytes>{aggregate({0x78}, {otherSps, pps}), idr()}));
    const auto small = Packetizer::make(Codec::h264, 30);
    EXPECT_EQ(payloadsOf(*pack(*small, frame({sps, pps, idr()}, true))[0]),
              (std::vector<Bytes>{sps, pps, idr()}));
}

TEST(H264Packetizer, AKeyFrameWithoutParameterSetsIsNoPlaceToStart)
{
    const auto packetizer = Packetizer::make(Codec::h264, 40);
    EncodedUnit unit = frame({idr()}, true);
    MediaFormat without = *unit.format;
    without.codecData.clear();
    unit.format = std::make_shared<const MediaFormat>(without);
    EXPECT_FALSE(pack(*packetizer, unit)[0]->keyFrame);
}

TEST(H264Packetizer, LengthsThatDoNotFitAreRefused)
{
    const auto packetizer = Packetizer::make(Codec::h264, 40);
    std::vector<std::shared_ptr<AccessUnit>> made;
    EncodedUnit unit = frame({p()}, false);
    const Bytes whole = unit.bytes;
    for (std::size_t size = 1; size < whole.size(); ++size)
    {
        unit.bytes.assign(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
        EXPECT_STREQ(packetizer->pack(unit, 0, made), "the lengths of NAL units do not fit");
    }
    unit.bytes = prefixed({delimiter, filler, {}});
    EXPECT_STREQ(packetizer->pack(unit, 0, made), "a unit without frame");
    EXPECT_TRUE(made.empty());
}

TEST(H264Packetizer, LengthsHaveTheSizeOfTheFormat)
{
    const auto packetizer = Packetizer::make(Codec::h264, 40);
    EncodedUnit unit = frame({p()}, false);
    MediaFormat two = *unit.format;
    two.codecData[4] = 0xfd;
    unit.format = std::make_shared<const MediaFormat>(two);
    unit.bytes.erase(unit.bytes.begin(), unit.bytes.begin() + 2);
    EXPECT_EQ(payloadsOf(*pack(*packetizer, unit)[0]), std::vector<Bytes>{p()});
}

TEST(H264Packetizer, EveryPayloadSizeBringsTheFrameBack)
{
    const std::vector<std::vector<Bytes>> frames{{sps, pps, idr(5000)},
                                                 {p(2)},
                                                 {p(3), more(p(4))},
                                                 {p(1499)},
                                                 {p(1500)},
                                                 {p(1501)},
                                                 {recoveryPoint, p(40)},
                                                 {p(700), more(p(1600))}};
    for (int payloadSize = 1; payloadSize <= 1500; payloadSize += payloadSize < 70 ? 1 : 13)
    {
        const auto packetizer = Packetizer::make(Codec::h264, payloadSize);
        Reception reception(track(true));
        for (std::size_t i = 0; i < frames.size(); ++i)
        {
            const auto made =
                pack(*packetizer, frame(frames[i], i == 0), static_cast<std::uint32_t>(i * 3000));
            for (const Bytes& payload : payloadsOf(*made[0]))
            {
                ASSERT_LE(payload.size(), static_cast<std::size_t>(std::max(payloadSize, 3)));
            }
            reception.pushAll(*made[0]);
        }
        reception.depacketizer->flush();
        ASSERT_EQ(reception.units.size(), frames.size()) << payloadSize;
        for (std::size_t i = 0; i < frames.size(); ++i)
        {
            ASSERT_EQ(reception.units[i].bytes, prefixed(frames[i])) << payloadSize << " " << i;
            ASSERT_FALSE(reception.units[i].damaged);
        }
    }
}

TEST(H264Packetizer, DescribesTheTrackByItsParameterSets)
{
    SubMediaInfo described;
    ASSERT_TRUE(Packetizer::describe(*format(), "trackID=0", described));
    EXPECT_EQ(described.encodingName, "H264");
    EXPECT_EQ(described.mediaType, "video");
    EXPECT_EQ(described.payloadType, 96);
    EXPECT_EQ(described.clockRate, 90000);
    EXPECT_EQ(described.channels, 0);
    EXPECT_EQ(described.width, 320);
    EXPECT_EQ(described.height, 240);
    EXPECT_EQ(described.frameRate, 30);
    EXPECT_EQ(described.formatParameters,
              "packetization-mode=1;profile-level-id=42c015;"
              "sprop-parameter-sets=Z0LAFdoFB+wFqDAwNSgAAAMACAAAAwHkeLF1,aM4PyA==");
}

TEST(H264Packetizer, ARecordThatIsCutShortDescribesNothing)
{
    const MediaFormat whole = *format();
    SubMediaInfo described;
    described.trackId = "as it was";
    for (std::size_t size = 0; size < whole.codecData.size(); ++size)
    {
        MediaFormat cut = whole;
        cut.codecData.resize(size);
        EXPECT_FALSE(Packetizer::describe(cut, "trackID=0", described)) << size;
    }
    EXPECT_EQ(described.trackId, "as it was");
}

}  // namespace
}  // namespace refhost
