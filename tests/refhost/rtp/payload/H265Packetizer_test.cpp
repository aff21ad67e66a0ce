#include <gtest/gtest.h>

#include "refhost/rtp/payload/NalPacketizer.h"
#include "tests/refhost/rtp/payload/H265Units.h"

namespace refhost
{
namespace
{

using namespace test::h265;
using test::aggregate;
using test::Bytes;
using test::pack;
using test::payloadsOf;
using test::prefixed;
using test::Reception;

EncodedUnit frame(const std::vector<Bytes>& units, bool keyFrame)
{
    EncodedUnit unit;
    unit.format = Reception(track(true)).depacketizer->format();
    unit.bytes = prefixed(units);
    unit.keyFrame = keyFrame;
    return unit;
}

TEST(H265Packetizer, ALargeSliceIsFragmented)
{
    const auto packetizer = Packetizer::make(Codec::h265, 6);
    const Bytes slice{0x02, 0x01, 0x80, 1, 2, 3, 4, 5};
    EXPECT_EQ(payloadsOf(*pack(*packetizer, frame({slice}, false))[0]),
              (std::vector<Bytes>{{0x62, 0x01, 0x81, 0x80, 1, 2}, {0x62, 0x01, 0x41, 3, 4, 5}}));
}

TEST(H265Packetizer, ParameterSetsOfTheFormatPrecedeAKeyFrame)
{
    const auto packetizer = Packetizer::make(Codec::h265, 200);
    const auto made = pack(*packetizer, frame({delimiter, information, idr()}, true));
    EXPECT_EQ(payloadsOf(*made[0]),
              (std::vector<Bytes>{aggregate({0x60, 0x01}, {vps, sps, pps, information}), idr()}));
    EXPECT_TRUE(made[0]->keyFrame);
}

TEST(H265Packetizer, AnAggregateHasTheLowestLayerOfItsUnits)
{
    const auto packetizer = Packetizer::make(Codec::h265, 200);
    const Bytes late{0x4e, 0x03, 0x05, 0x01, 0xaa, 0x80};
    const auto made = pack(*packetizer, frame({late, information, p()}, false));
    EXPECT_EQ(payloadsOf(*made[0])[0], aggregate({0x60, 0x01}, {late, information}));
}

TEST(H265Packetizer, EveryPayloadSizeBringsTheFrameBack)
{
    const std::vector<std::vector<Bytes>> frames{{vps, sps, pps, idr(5000)},
                                                 {p(3)},
                                                 {p(4), more(p(5))},
                                                 {p(1499)},
                                                 {p(1500)},
                                                 {p(1501)},
                                                 {information, p(40)},
                                                 {p(700), more(p(1600))}};
    for (int payloadSize = 1; payloadSize <= 1500; payloadSize += payloadSize < 90 ? 1 : 13)
    {
        const auto packetizer = Packetizer::make(Codec::h265, payloadSize);
        Reception reception(track(true));
        for (std::size_t i = 0; i < frames.size(); ++i)
        {
            const auto made =
                pack(*packetizer, frame(frames[i], i == 0), static_cast<std::uint32_t>(i * 3000));
            for (const Bytes& payload : payloadsOf(*made[0]))
            {
                ASSERT_LE(payload.size(), static_cast<std::size_t>(std::max(payloadSize, 4)));
            }
            reception.pushAll(*made[0]);
        }
        reception.depacketizer->flush();
        ASSERT_EQ(reception.units.size(), frames.size()) << payloadSize;
        for (std::size_t i = 0; i < frames.size(); ++i)
        {
            ASSERT_EQ(reception.units[i].bytes, prefixed(frames[i])) << payloadSize << " " << i;
        }
    }
}

TEST(H265Packetizer, DescribesTheTrackByItsParameterSets)
{
    SubMediaInfo described;
    ASSERT_TRUE(Packetizer::describe(*Reception(track(true)).depacketizer->format(), "trackID=0", described));
    const FormatParameters parameters = track(true).parameters;
    EXPECT_EQ(described.formatParameters, "sprop-vps=" + parameters.at("sprop-vps") +
                                              ";sprop-sps=" + parameters.at("sprop-sps") +
                                              ";sprop-pps=" + parameters.at("sprop-pps"));
    EXPECT_EQ(described.encodingName, "H265");
}

}  // namespace
}  // namespace refhost
