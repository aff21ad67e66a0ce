#include <gtest/gtest.h>

#include "refhost/rtp/payload/NalDepacketizer.h"
#include "tests/AllocationCounter.h"
#include "tests/refhost/rtp/payload/H264Reception.h"
#include "tests/refhost/rtp/payload/H264Units.h"
#include "tests/refhost/rtp/payload/WholeUnits.h"

namespace refhost
{
namespace
{

using namespace test::h264;
using test::aggregate;
using test::Bytes;
using test::fromHex;
using test::joined;
using test::payloadsOf;
using test::prefixed;
using test::Reception;

TEST(H264Depacketizer, UnitsOfOneTimestampAreAFrame)
{
    Reception reception(track(false));
    for (const Bytes& unit : {delimiter, sps, pps, filler})
    {
        EXPECT_EQ(reception.push(unit, 9000, false), "");
    }
    EXPECT_EQ(reception.push(idr(), 9000, false), "");
    EXPECT_EQ(reception.push(more(idr(15)), 9000, true), "");
    reception.depacketizer->flush();
    ASSERT_EQ(reception.units.size(), 1U);
    const DepacketizedUnit& unit = reception.units[0];
    EXPECT_EQ(unit.bytes, prefixed({sps, pps, idr(), more(idr(15))}));
    EXPECT_EQ(unit.timestamp, 9000U);
    EXPECT_TRUE(unit.keyFrame);
    EXPECT_FALSE(unit.damaged);
    EXPECT_EQ(payloadsOf(*unit.packets),
              (std::vector<Bytes>{delimiter, sps, pps, filler, idr(), more(idr(15))}));
    EXPECT_TRUE(unit.packets->keyFrame);
    EXPECT_EQ(unit.packets->rtpTimestamp, 9000U);
    EXPECT_FALSE(test::markerOf(*unit.packets, 4));
    EXPECT_TRUE(test::markerOf(*unit.packets, 5));
    EXPECT_EQ(unit.maxPayload, sps.size());
}

TEST(H264Depacketizer, FragmentsAndAggregatesAreTakenApart)
{
    Believed reception;
    EXPECT_EQ(reception.push(aggregate({0x78}, {delimiter, sps, pps}), 6000, false), "");
    const std::vector<Bytes> packets = fragments(idr(100), 30);
    ASSERT_EQ(packets.size(), 4U);
    for (std::size_t i = 0; i < packets.size(); ++i)
    {
        EXPECT_EQ(reception.push(packets[i], 6000, i == 3), "");
    }
    ASSERT_EQ(reception.units.size(), 1U);
    EXPECT_EQ(reception.units[0].bytes, prefixed({sps, pps, idr(100)}));
    EXPECT_EQ(reception.units[0].packets->packets.size(), 5U);
}

TEST(H264Depacketizer, TheFormatIsThatOfTheDescription)
{
    const Reception reception(track(true));
    const auto format = reception.depacketizer->format();
    ASSERT_NE(format, nullptr);
    EXPECT_EQ(format->codec, Codec::h264);
    EXPECT_EQ(format->width, 320);
    EXPECT_EQ(format->height, 240);
    EXPECT_EQ(format->codecData, joined({fromHex("0142c015ffe1001b"), sps, fromHex("010004"), pps}));
}

TEST(H264Depacketizer, DescribedSetsMayHaveStartCodesAndOthersAreLeftOut)
{
    PayloadDescription odd = track(false);
    // Start code in front of the sequence set and a zero behind; not base64; a slice; the frame set.
    odd.parameters["sprop-parameter-sets"] =
        base64Of(joined({{0, 0, 0, 1}, sps, {0}}).data(), sps.size() + 5) + ",%,," +
        base64Of(idr().data(), 20) + "," + base64Of(pps.data(), pps.size());
    const Reception reception(odd);
    ASSERT_NE(reception.depacketizer->format(), nullptr);
    EXPECT_EQ(*reception.depacketizer->format(), *Reception(track(true)).depacketizer->format());
}

TEST(H264Depacketizer, NothingIsDeliveredBeforeTheFormatIsKnown)
{
    Reception reception(track(false));
    reception.push(p(), 0, true);
    reception.push(sps, 3000, false);
    reception.push(idr(), 3000, true);
    reception.push(p(), 6000, true);
    EXPECT_TRUE(reception.units.empty());
    reception.push(pps, 9000, false);
    reception.push(idr(), 9000, true);
    EXPECT_EQ(reception.units.size(), 1U);
}

TEST(H264Depacketizer, ANewParameterSetMakesANewFormat)
{
    Believed reception;
    reception.push(p(), 6000, true);
    reception.push(sps, 9000, false);
    reception.push(pps, 9000, false);
    reception.push(idr(), 9000, true);
    reception.push(otherSps, 12000, false);
    reception.push(pps, 12000, false);
    reception.push(idr(), 12000, true);
    ASSERT_EQ(reception.units.size(), 3U);
    EXPECT_EQ(reception.units[0].format, reception.units[1].format);
    EXPECT_EQ(reception.units[1].format->width, 320);
    EXPECT_EQ(reception.units[2].format->width, 322);
    EXPECT_EQ(reception.units[2].format->height, 242);
    EXPECT_EQ(reception.units[2].format->codecData,
              joined({fromHex("0142c015ffe1001e"), otherSps, fromHex("010004"), pps}));
}

TEST(H264Depacketizer, AParameterSetThatCannotBeReadDamagesItsFrame)
{
    Believed reception;
    reception.push(fromHex("6742c015"), 6000, false);
    reception.push(idr(), 6000, true);
    ASSERT_EQ(reception.units.size(), 1U);
    EXPECT_TRUE(reception.units[0].damaged);
    EXPECT_EQ(reception.units[0].format->width, 320);
    EXPECT_EQ(reception.units[0].bytes, prefixed({sps, pps, idr()}));
}

TEST(H264Depacketizer, ParameterSetsMayHaveATimestampOfTheirOwn)
{
    Believed reception(false);
    // With the marker, too.
    reception.push(sps, 5000, true);
    reception.push(pps, 5500, true);
    reception.push(idr(), 6000, true);
    ASSERT_EQ(reception.units.size(), 1U);
    EXPECT_EQ(reception.units[0].bytes, prefixed({sps, pps, idr()}));
    EXPECT_EQ(reception.units[0].timestamp, 6000U);
    EXPECT_EQ(payloadsOf(*reception.units[0].packets), (std::vector<Bytes>{sps, pps, idr()}));
    for (std::size_t i = 0; i < 3; ++i)
    {
        EXPECT_EQ(readBig32(reception.units[0].packets->bytes.data() +
                            reception.units[0].packets->packets[i].offset + 4),
                  6000U);
    }
}

TEST(H264Depacketizer, ParameterSetsThatAreDescribedAlonePrecedeKeyFrames)
{
    Believed reception;
    reception.push(idr(), 6000, true);
    reception.push(p(), 9000, true);
    ASSERT_EQ(reception.units.size(), 2U);
    EXPECT_EQ(reception.units[0].bytes, prefixed({sps, pps, idr()}));
    EXPECT_EQ(payloadsOf(*reception.units[0].packets), (std::vector<Bytes>{sps, pps, idr()}));
    EXPECT_EQ(reception.units[0].packets->payloadBytes, sps.size() + pps.size() + 20);
    EXPECT_EQ(reception.units[1].bytes, prefixed({p()}));
    EXPECT_EQ(payloadsOf(*reception.units[1].packets), std::vector<Bytes>{p()});
}

TEST(H264Depacketizer, ParameterSetsBetweenSlicesStandInFrontAlone)
{
    Believed reception;
    for (const Bytes& unit : {sps, pps, idr(), sps, pps})
    {
        reception.push(unit, 6000, false);
    }
    reception.push(more(idr()), 6000, true);
    ASSERT_EQ(reception.units.size(), 1U);
    EXPECT_EQ(reception.units[0].bytes, prefixed({sps, pps, idr(), more(idr())}));
}

TEST(H264Depacketizer, FramesEndWithTheTimestampWhereMarkersAreNeverSet)
{
    Reception reception(track(true));
    for (std::uint32_t i = 0; i < 4; ++i)
    {
        reception.push(p(30, i), i * 3000, false);
        reception.push(more(p(30, i)), i * 3000, false);
        ASSERT_EQ(reception.units.size(), i);
    }
    EXPECT_EQ(reception.units[2].bytes, prefixed({p(30, 2), more(p(30, 2))}));
    EXPECT_FALSE(reception.units[2].damaged);
    EXPECT_TRUE(test::markerOf(*reception.units[2].packets, 1));
}

TEST(H264Depacketizer, AMarkerOnEachSliceIsFoundOutWithTheFirstFrame)
{
    Reception reception(track(true));
    for (std::uint32_t i = 0; i < 4; ++i)
    {
        for (const Bytes& unit : {sps, pps, idr(), more(idr()), more(idr())})
        {
            reception.push(unit, i * 3000, true);
        }
        ASSERT_EQ(reception.units.size(), i);
    }
    for (const DepacketizedUnit& unit : reception.units)
    {
        EXPECT_EQ(unit.bytes, prefixed({sps, pps, idr(), more(idr()), more(idr())}));
        EXPECT_FALSE(unit.damaged);
        EXPECT_FALSE(test::markerOf(*unit.packets, 3));
        EXPECT_TRUE(test::markerOf(*unit.packets, 4));
    }
}

TEST(H264Depacketizer, AMarkerOnEachPacketOfAFragmentIsFoundOut)
{
    Reception reception(track(true));
    for (std::uint32_t i = 0; i < 3; ++i)
    {
        for (const Bytes& packet : fragments(idr(100), 30))
        {
            reception.push(packet, i * 3000, true);
        }
    }
    ASSERT_EQ(reception.units.size(), 2U);
    EXPECT_EQ(reception.units[0].bytes, prefixed({sps, pps, idr(100)}));
    EXPECT_EQ(reception.units[1].bytes, prefixed({sps, pps, idr(100)}));
}

TEST(H264Depacketizer, AMarkerThatLiesLaterCostsOneFrame)
{
    Believed reception;
    reception.push(idr(), 6000, true);
    reception.push(more(idr()), 6000, true);
    reception.push(idr(), 9000, true);
    reception.push(more(idr()), 9000, true);
    reception.push(p(), 12000, true);
    ASSERT_EQ(reception.units.size(), 3U);
    EXPECT_TRUE(reception.units[1].damaged);
    EXPECT_EQ(reception.units[2].bytes, prefixed({sps, pps, idr(), more(idr())}));
    EXPECT_FALSE(reception.units[2].damaged);
}

TEST(H264Depacketizer, TwoFramesMayHaveOneTimestamp)
{
    Believed reception;
    reception.push(p(10, 1), 6000, true);
    reception.push(p(10, 2), 6000, true);
    reception.push(p(10, 3), 6000, true);
    ASSERT_EQ(reception.units.size(), 3U);
    EXPECT_EQ(reception.units[1].bytes, prefixed({p(10, 2)}));
    EXPECT_FALSE(reception.units[1].damaged);
}

TEST(H264Depacketizer, ADelimiterStartsAFrame)
{
    Reception reception(track(true));
    for (unsigned i = 0; i < 3; ++i)
    {
        reception.push(delimiter, 6000, false);
        reception.push(p(10, i), 6000, false);
    }
    ASSERT_EQ(reception.units.size(), 2U);
    EXPECT_EQ(reception.units[1].bytes, prefixed({p(10, 1)}));
}

TEST(H264Depacketizer, ASenderMayLeaveOutTheEndOfFragments)
{
    Believed reception;
    std::vector<Bytes> packets = fragments(p(100), 30);
    packets.back()[1] &= 0xbfU;
    for (std::uint32_t frame = 2; frame < 4; ++frame)
    {
        for (const Bytes& packet : packets)
        {
            reception.push(packet, frame * 3000, false);
        }
        for (std::size_t i = 0; i < packets.size(); ++i)
        {
            Bytes packet = packets[i];
            packet[2] = i == 0 ? 0x46 : packet[2];
            reception.push(packet, frame * 3000, i + 1 == packets.size());
        }
    }
    ASSERT_EQ(reception.units.size(), 2U);
    EXPECT_EQ(reception.units[0].bytes, prefixed({p(100), more(p(100))}));
    EXPECT_FALSE(reception.units[0].damaged);
    // Receivers may wait for it.
    EXPECT_EQ(test::wholeUnitsOf(Codec::h264, payloadsOf(*reception.units[0].packets)),
              (std::vector<Bytes>{p(100), more(p(100))}));
}

TEST(H264Depacketizer, FragmentsMayDifferInTheirImportance)
{
    Believed reception;
    std::vector<Bytes> packets = fragments(idr(100), 30);
    packets[2][0] &= 0x1fU;
    for (std::size_t i = 0; i < packets.size(); ++i)
    {
        reception.push(packets[i], 6000, i + 1 == packets.size());
    }
    ASSERT_EQ(reception.units.size(), 1U);
    EXPECT_EQ(reception.units[0].bytes, prefixed({sps, pps, idr(100)}));
    EXPECT_FALSE(reception.units[0].damaged);
}

TEST(H264Depacketizer, AFragmentOfAnotherUnitDamagesTheFrame)
{
    Believed reception;
    reception.push(fragments(idr(100), 60)[0], 6000, false);
    reception.push(fragments(p(100), 60)[1], 6000, true);
    ASSERT_EQ(reception.units.size(), 1U);
    EXPECT_TRUE(reception.units[0].damaged);
    EXPECT_TRUE(reception.units[0].bytes.empty());
}

TEST(H264Depacketizer, AFrameDoesNotKeepMuchMoreMemoryThanItNeeds)
{
    Believed reception;
    // Key frames in aggregates as others are.
    for (std::uint32_t i = 2; i < 10; ++i)
    {
        reception.push(aggregate({0x78}, {sps, pps, idr(60000, i)}), i * 6000, true);
        reception.push(aggregate({0x78}, {p(500, i)}), i * 6000 + 3000, true);
        reception.push(aggregate({0x78}, {sps, pps, p(500, i)}), i * 6000 + 4500, true);
    }
    for (const DepacketizedUnit& unit : reception.units)
    {
        EXPECT_LE(unit.bytes.capacity(), 2 * unit.bytes.size() + 4096);
        EXPECT_LE(unit.packets->bytes.capacity(), 2 * unit.packets->bytes.size() + 4096);
    }
}

TEST(H264Depacketizer, AParameterSetMayComeInFragments)
{
    Reception reception(track(false));
    for (const Bytes& packet : fragments(sps, 10))
    {
        reception.push(packet, 0, false);
    }
    reception.push(pps, 0, false);
    reception.push(idr(), 0, false);
    reception.depacketizer->flush();
    ASSERT_EQ(reception.units.size(), 1U);
    EXPECT_EQ(reception.units[0].bytes, prefixed({sps, pps, idr()}));
}

TEST(H264Depacketizer, UnitsMayStandBehindStartCodesInAPacket)
{
    Believed reception;
    const Bytes packet =
        joined({{0, 0, 0, 1}, sps, {0, 0, 0, 1}, pps, {0, 0, 1}, idr(), {0, 0, 1}, more(idr())});
    EXPECT_EQ(reception.push(packet, 6000, true), "");
    ASSERT_EQ(reception.units.size(), 1U);
    EXPECT_EQ(reception.units[0].bytes, prefixed({sps, pps, idr(), more(idr())}));
    EXPECT_FALSE(reception.units[0].damaged);
    // Players do not expect start codes.
    EXPECT_EQ(payloadsOf(*reception.units[0].packets), (std::vector<Bytes>{sps, pps, idr(), more(idr())}));
}

struct KeyFrameCase
{
    const char* name;
    std::vector<Bytes> units;
    bool keyFrame;
};

class H264KeyFrame : public testing::TestWithParam<KeyFrameCase>
{
};

TEST_P(H264KeyFrame, IsWhereADecoderCanStart)
{
    Believed reception;
    for (std::size_t i = 0; i < GetParam().units.size(); ++i)
    {
        reception.push(GetParam().units[i], 6000, i + 1 == GetParam().units.size());
    }
    ASSERT_EQ(reception.units.size(), 1U);
    EXPECT_EQ(reception.units[0].keyFrame, GetParam().keyFrame);
    EXPECT_EQ(reception.units[0].packets->keyFrame, GetParam().keyFrame);
}

const Bytes gradual{0x06, 0x06, 0x01, 0x24, 0x80};  // recovery_frame_cnt 3

INSTANTIATE_TEST_SUITE_P(
    Frames, H264KeyFrame,
    testing::Values(KeyFrameCase{"Idr", {idr()}, true}, KeyFrameCase{"P", {p()}, false},
                    KeyFrameCase{"IAlone", {intra()}, false},
                    KeyFrameCase{"IBehindARecoveryPoint", {recoveryPoint, intra()}, true},
                    KeyFrameCase{"IBehindParameterSets", {sps, pps, intra()}, true},
                    KeyFrameCase{
                        "ISlicesBehindARecoveryPoint", {recoveryPoint, intra(), moreIntra(intra())}, true},
                    KeyFrameCase{"PBehindARecoveryPoint", {recoveryPoint, p()}, false},
                    KeyFrameCase{"IAndPBehindParameterSets", {sps, pps, intra(), more(p())}, false},
                    KeyFrameCase{"IBehindAGradualRefresh", {gradual, intra()}, false}),
    [](const auto& each) { return std::string(each.param.name); });

struct RefusedCase
{
    const char* name;
    Bytes payload;
    const char* why;
};

class H264Refused : public testing::TestWithParam<RefusedCase>
{
};

TEST_P(H264Refused, PacketIsRefusedAndCountsAsLost)
{
    Believed reception;
    EXPECT_EQ(reception.push(GetParam().payload, 6000, false), GetParam().why);
    EXPECT_EQ(reception.push(p(), 6000, true), "");
    reception.push(p(), 9000, true);
    ASSERT_EQ(reception.units.size(), 2U);
    EXPECT_TRUE(reception.units[0].damaged);
    EXPECT_FALSE(reception.units[1].damaged);
    EXPECT_EQ(payloadsOf(*reception.units[0].packets), std::vector<Bytes>{p()});
}

INSTANTIATE_TEST_SUITE_P(
    Packets, H264Refused,
    testing::Values(
        RefusedCase{"StapB", {25, 0, 1, 0, 2, 65, 1}, "interleaved packets (STAP-B) are not read"},
        RefusedCase{"Mtap16", {26, 0, 0, 0, 0}, "interleaved packets (MTAP) are not read"},
        RefusedCase{"Mtap24", {27, 0, 0, 0, 0}, "interleaved packets (MTAP) are not read"},
        RefusedCase{"FuB", {29, 0x85, 0, 1, 2}, "interleaved packets (FU-B) are not read"},
        RefusedCase{"Reserved", {30, 1, 2}, "reserved type of NAL unit"},
        RefusedCase{"TypeZero", {0x60, 1, 2}, "reserved type of NAL unit"},
        RefusedCase{"FragmentWithoutBody", {28, 0x85}, "cut short"},
        RefusedCase{"FragmentOfAFragment", {28, 0x9c, 1}, "a fragment of what cannot be fragmented"},
        RefusedCase{"EmptyAggregate", {24}, "the sizes in an aggregate do not fit"},
        RefusedCase{"AggregateWithEmptyUnit", {24, 0, 0}, "the sizes in an aggregate do not fit"},
        RefusedCase{"AggregateCutShort", {24, 0, 3, 65, 1}, "the sizes in an aggregate do not fit"},
        RefusedCase{"AggregateWithRest", {24, 0, 1, 65, 0}, "the sizes in an aggregate do not fit"},
        RefusedCase{"AggregateInAnAggregate", {24, 0, 2, 24, 1}, "a packet in an aggregate"},
        RefusedCase{"StartCodeAlone", {0, 0, 1}, "cut short"}),
    [](const auto& each) { return std::string(each.param.name); });

TEST(H264Depacketizer, InterleavedTracksAreRefused)
{
    PayloadDescription interleaved = track(true);
    interleaved.parameters["packetization-mode"] = "2";
    const Reception reception(interleaved);
    EXPECT_EQ(reception.depacketizer, nullptr);
    EXPECT_EQ(reception.error, "interleaved packets (packetization-mode 2) cannot be read");
    interleaved = track(true);
    interleaved.clockRate = 1000;
    EXPECT_EQ(Reception(interleaved).error, "video has a clock rate of 90000 Hz, not 1000");
}

TEST(H264Depacketizer, AFrameThatIsTooLargeIsLeftOut)
{
    Believed reception;
    std::vector<Bytes> packets = fragments(p(20), 30);
    packets[0].resize(60000);
    packets[0][1] = 0x81;
    reception.push(packets[0], 6000, false);
    packets[0][1] = 0x01;
    std::size_t refused = 0;
    for (std::size_t bytes = 0; bytes < 3 * Depacketizer::maxUnitBytes; bytes += 60000)
    {
        refused += reception.push(packets[0], 6000, false).empty() ? 0 : 1;
    }
    EXPECT_GT(refused, 500U);
    reception.push(p(), 9000, true);
    reception.push(p(), 12000, true);
    ASSERT_EQ(reception.units.size(), 2U);
    EXPECT_EQ(reception.units[0].timestamp, 9000U);
    EXPECT_TRUE(reception.units[0].damaged);
    EXPECT_FALSE(reception.units[1].damaged);
}

TEST(H264Depacketizer, AFrameOfTooManyPacketsIsLeftOut)
{
    Believed reception;
    for (std::size_t i = 0; i < Depacketizer::maxUnitPackets; ++i)
    {
        EXPECT_EQ(reception.push(p(), 6000, false), "");
    }
    EXPECT_EQ(reception.push(p(), 6000, true), "part of a frame that is too large");
    EXPECT_TRUE(reception.units.empty());
}

TEST(H264Depacketizer, ParameterSetsAreBounded)
{
    Believed reception;
    for (unsigned i = 0; i < 300; ++i)
    {
        // Numbers 0 to 299 of frame sets.
        Bytes set{0x68, 0, 0, 0, 0x80};
        const unsigned code = i + 1;
        set[2] = static_cast<std::uint8_t>(code >> 4U);
        set[3] = static_cast<std::uint8_t>(code << 4U);
        unsigned zeros = 0;
        for (unsigned left = code; left > 1; left >>= 1U)
        {
            ++zeros;
        }
        // ue(v): as many zeros as bits follow the first one.
        const std::uint32_t bits = code << (31 - 2 * zeros);
        writeBig32(set.data() + 1, bits | 0x80U);
        reception.push(set, 6000, false);
    }
    reception.push(idr(), 6000, true);
    ASSERT_EQ(reception.units.size(), 1U);
    EXPECT_TRUE(reception.units[0].damaged);
    EXPECT_EQ(reception.units[0].format->codecData[8 + sps.size()], ParameterSets::maxSets);
}

TEST(H264Depacketizer, WhatNobodyTakesIsNotMade)
{
    Believed reception;
    reception.depacketizer->setOutputs({false, true});
    reception.push(idr(), 6000, true);
    reception.depacketizer->setOutputs({true, false});
    reception.push(idr(), 9000, true);
    ASSERT_EQ(reception.units.size(), 2U);
    EXPECT_TRUE(reception.units[0].bytes.empty());
    EXPECT_EQ(reception.units[0].packets->packets.size(), 3U);
    EXPECT_EQ(reception.units[1].bytes, prefixed({sps, pps, idr()}));
    EXPECT_EQ(reception.units[1].packets, nullptr);
    EXPECT_EQ(reception.units[1].maxPayload, 0U);
}

TEST(H264Depacketizer, AfterAResetNothingHeldComesOut)
{
    Believed reception;
    reception.push(p(), 6000, false, 2);
    reception.depacketizer->reset();
    reception.push(idr(), 90000, true);
    reception.depacketizer->flush();
    ASSERT_EQ(reception.units.size(), 1U);
    EXPECT_EQ(reception.units[0].timestamp, 90000U);
    EXPECT_FALSE(reception.units[0].damaged);
}

TEST(H264Depacketizer, AFrameCostsOneAllocationForMediaAndThreeForPackets)
{
    std::size_t delivered = 0;
    std::string error;
    const auto depacketizer = Depacketizer::make(
        track(true), [&](DepacketizedUnit&&) { ++delivered; }, error);
    const std::vector<Bytes> packets = fragments(p(5000), 1398);
    const auto frame = [&](std::uint32_t timestamp)
    {
        for (std::size_t i = 0; i < packets.size(); ++i)
        {
            RtpPacketView packet;
            packet.marker = i + 1 == packets.size();
            packet.timestamp = timestamp;
            packet.payload = packets[i].data();
            packet.payloadSize = packets[i].size();
            depacketizer->push(packet, 0);
        }
    };
    const auto costOf = [&](bool media, bool wire)
    {
        depacketizer->setOutputs({media, wire});
        for (std::uint32_t i = 0; i < 4; ++i)
        {
            frame(i * 3000);
        }
        const AllocationCounter counter;
        frame(12000);
        return counter.count();
    };
    EXPECT_EQ(costOf(true, false), 1U);
    EXPECT_EQ(costOf(false, true), 3U);
    EXPECT_EQ(costOf(true, true), 4U);
    EXPECT_EQ(delivered, 15U);
}

}  // namespace
}  // namespace refhost
