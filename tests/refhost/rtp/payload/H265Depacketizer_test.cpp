#include <gtest/gtest.h>

#include "refhost/rtp/payload/NalDepacketizer.h"
#include "tests/refhost/rtp/payload/H265Units.h"

namespace refhost
{
namespace
{

using namespace test::h265;
using test::aggregate;
using test::Bytes;
using test::payloadsOf;
using test::prefixed;
using test::Reception;

/// A reception whose markers are believed.
class Believed : public Reception
{
public:
    Believed() : Reception(track(true))
    {
        push(idr(), 0, true);
        push(p(), 3000, true);
        units.clear();
    }
};

TEST(H265Depacketizer, TheFormatIsThatOfTheDescription)
{
    const Reception reception(track(true));
    const auto format = reception.depacketizer->format();
    ASSERT_NE(format, nullptr);
    EXPECT_EQ(format->codec, Codec::h265);
    EXPECT_EQ(format->width, 322);
    EXPECT_EQ(format->height, 242);
    EXPECT_EQ(format->codecData, record);
}

TEST(H265Depacketizer, TheFormatComesWithTheMedia)
{
    Reception reception(track(false));
    for (const Bytes& unit : {delimiter, vps, sps, pps, information, filler, idr()})
    {
        EXPECT_EQ(reception.push(unit, 0, false), "");
    }
    EXPECT_EQ(reception.push(more(idr()), 0, true), "");
    reception.depacketizer->flush();
    ASSERT_EQ(reception.units.size(), 1U);
    EXPECT_EQ(reception.units[0].bytes, prefixed({vps, sps, pps, information, idr(), more(idr())}));
    EXPECT_EQ(reception.units[0].format->codecData, record);
    EXPECT_TRUE(reception.units[0].keyFrame);
}

TEST(H265Depacketizer, FragmentsAndAggregatesAreTakenApart)
{
    Believed reception;
    EXPECT_EQ(reception.push(aggregate({0x60, 0x01}, {vps, sps, pps}), 6000, false), "");
    const std::vector<Bytes> packets = fragments(idr(100), 30);
    for (std::size_t i = 0; i < packets.size(); ++i)
    {
        EXPECT_EQ(reception.push(packets[i], 6000, i + 1 == packets.size()), "");
    }
    ASSERT_EQ(reception.units.size(), 1U);
    EXPECT_EQ(reception.units[0].bytes, prefixed({vps, sps, pps, idr(100)}));
    EXPECT_EQ(payloadsOf(*reception.units[0].packets)[1], packets[0]);
}

TEST(H265Depacketizer, DescribedParameterSetsPrecedeKeyFrames)
{
    Believed reception;
    reception.push(idr(), 6000, true);
    ASSERT_EQ(reception.units.size(), 1U);
    EXPECT_EQ(reception.units[0].bytes, prefixed({vps, sps, pps, idr()}));
    EXPECT_EQ(payloadsOf(*reception.units[0].packets), (std::vector<Bytes>{vps, sps, pps, idr()}));
}

TEST(H265Depacketizer, KeyFramesAreThoseOfRandomAccess)
{
    for (std::uint8_t type = 0; type < 32; ++type)
    {
        Believed reception;
        reception.push(slice(type, 20, 1), 6000, true);
        ASSERT_EQ(reception.units.size(), 1U);
        EXPECT_EQ(reception.units[0].keyFrame, type >= 16 && type <= 23) << int{type};
    }
}

TEST(H265Depacketizer, AMarkerOnEachSliceIsFoundOutWithTheFirstFrame)
{
    Reception reception(track(true));
    for (std::uint32_t i = 0; i < 4; ++i)
    {
        for (const Bytes& unit : {vps, sps, pps, idr(), more(idr())})
        {
            reception.push(unit, i * 3000, true);
        }
        ASSERT_EQ(reception.units.size(), i);
    }
    EXPECT_EQ(reception.units[0].bytes, prefixed({vps, sps, pps, idr(), more(idr())}));
}

TEST(H265Depacketizer, ALostFragmentDamagesItsFrameAlone)
{
    for (std::size_t lost = 0; lost < 4; ++lost)
    {
        Believed reception;
        const std::vector<Bytes> packets = fragments(p(100), 30);
        for (std::size_t i = 0; i < packets.size(); ++i)
        {
            if (i != lost)
            {
                reception.push(packets[i], 6000, i + 1 == packets.size(), i == lost + 1 ? 1 : 0);
            }
        }
        reception.push(idr(), 9000, true, lost + 1 == packets.size() ? 1 : 0);
        ASSERT_EQ(reception.units.size(), 2U);
        EXPECT_TRUE(reception.units[0].damaged);
        EXPECT_TRUE(reception.units[0].bytes.empty());
        EXPECT_EQ(reception.units[0].packets, nullptr);
        EXPECT_FALSE(reception.units[1].damaged);
    }
}

TEST(H265Depacketizer, OfALostFragmentViewersGetTheOtherSlices)
{
    for (std::size_t lost = 0; lost < 4; ++lost)
    {
        Believed reception;
        const std::vector<Bytes> torn = fragments(more(p(100)), 30);
        reception.push(p(60), 6000, false);
        for (std::size_t i = 0; i < torn.size(); ++i)
        {
            if (i != lost)
            {
                reception.push(torn[i], 6000, false, i == lost + 1 ? 1 : 0);
            }
        }
        reception.push(more(p(50)), 6000, true, lost + 1 == torn.size() ? 1 : 0);
        ASSERT_EQ(reception.units.size(), 1U);
        EXPECT_TRUE(reception.units[0].damaged);
        EXPECT_EQ(reception.units[0].bytes, prefixed({p(60), more(p(50))}));
        EXPECT_EQ(payloadsOf(*reception.units[0].packets), (std::vector<Bytes>{p(60), more(p(50))}));
    }
}

TEST(H265Depacketizer, AMissingMarkOfTheLastFragmentIsSetForViewers)
{
    Believed reception;
    std::vector<Bytes> packets = fragments(p(100), 30);
    const Bytes marked = packets.back();
    packets.back()[2] &= 0xbfU;
    for (std::size_t i = 0; i < packets.size(); ++i)
    {
        reception.push(packets[i], 6000, i + 1 == packets.size());
    }
    ASSERT_EQ(reception.units.size(), 1U);
    EXPECT_EQ(payloadsOf(*reception.units[0].packets).back(), marked);
}

TEST(H265Depacketizer, EveryPrefixOfAPacketIsTakenOrRefused)
{
    for (const Bytes& packet :
         {aggregate({0x60, 0x01}, {vps, sps, pps}), fragments(idr(50), 60)[0], idr(9), sps})
    {
        for (std::size_t size = 1; size <= packet.size(); ++size)
        {
            Believed reception;
            reception.push({packet.begin(), packet.begin() + static_cast<std::ptrdiff_t>(size)}, 6000, true);
            reception.push(p(), 9000, true);
            ASSERT_FALSE(reception.units.empty());
            const Bytes& bytes = reception.units.back().bytes;
            const Bytes end = prefixed({p()});
            ASSERT_GE(bytes.size(), end.size());
            EXPECT_TRUE(std::equal(end.rbegin(), end.rend(), bytes.rbegin()));
        }
    }
}

TEST(H265Depacketizer, WhatIsSentOutOfOrderIsRefused)
{
    for (const char* const name : {"sprop-max-don-diff", "sprop-depack-buf-nalus"})
    {
        PayloadDescription disordered = track(true);
        disordered.parameters[name] = "0";
        EXPECT_NE(Reception(disordered).depacketizer, nullptr);
        disordered.parameters[name] = "10";
        EXPECT_EQ(Reception(disordered).error,
                  "frames that are sent out of decoding order (sprop-max-don-diff) cannot be read");
    }
}

TEST(H265Depacketizer, MalformedPacketsAreRefused)
{
    Believed reception;
    EXPECT_EQ(reception.push({0x64, 1, 2}, 6000, false), "PACI packets are not read");
    EXPECT_EQ(reception.push({0x66, 1, 2}, 6000, false), "reserved type of NAL unit");
    EXPECT_EQ(reception.push({0x02}, 6000, false), "cut short");
    EXPECT_EQ(reception.push({0x62, 1, 0x81}, 6000, false), "cut short");
    EXPECT_EQ(reception.push({0x62, 1, 0xb0, 1}, 6000, false), "a fragment of what cannot be fragmented");
    EXPECT_EQ(reception.push({0x60, 1, 0, 1, 2}, 6000, false), "the sizes in an aggregate do not fit");
    EXPECT_EQ(reception.push({0x60, 1, 0, 2, 0x60, 1}, 6000, false), "a packet in an aggregate");
    EXPECT_EQ(reception.push(p(), 6000, true), "");
    ASSERT_EQ(reception.units.size(), 1U);
    EXPECT_TRUE(reception.units[0].damaged);
}

}  // namespace
}  // namespace refhost
