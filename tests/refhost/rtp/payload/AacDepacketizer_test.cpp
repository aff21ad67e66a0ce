#include "refhost/rtp/payload/AacDepacketizer.h"

#include <gtest/gtest.h>

#include "tests/refhost/rtp/payload/H264Units.h"

namespace refhost
{
namespace
{

using test::Bytes;
using test::counted;
using test::described;
using test::fromHex;
using test::joined;
using test::payloadsOf;
using test::Reception;

PayloadDescription track(const FormatParameters& more = {})
{
    FormatParameters parameters{{"mode", "AAC-hbr"},  {"config", "1408"},        {"sizelength", "13"},
                                {"indexlength", "3"}, {"indexdeltalength", "3"}, {"streamtype", "5"}};
    for (const auto& [name, value] : more)
    {
        parameters[name] = value;
    }
    return described("mpeg4-generic", 16000, parameters);
}

/// A payload of mode AAC-hbr.
Bytes hbr(const std::vector<std::size_t>& sizes, const Bytes& data)
{
    Bytes payload{0, static_cast<std::uint8_t>(16 * sizes.size())};
    for (const std::size_t size : sizes)
    {
        payload.push_back(static_cast<std::uint8_t>(size >> 5U));
        payload.push_back(static_cast<std::uint8_t>(size << 3U));
    }
    return joined({payload, data});
}

TEST(AacDepacketizer, AUnitOfEachSize)
{
    Reception reception(track());
    for (std::size_t size = 1; size <= 8191; size += 91)
    {
        reception.units.clear();
        ASSERT_EQ(reception.push(hbr({size}, counted(size)), 5, true), "");
        ASSERT_EQ(reception.units.size(), 1U);
        ASSERT_EQ(reception.units[0].bytes, counted(size));
    }
    const DepacketizedUnit& unit = reception.units[0];
    EXPECT_EQ(unit.timestamp, 5U);
    EXPECT_EQ(unit.duration, 1024U);
    EXPECT_TRUE(unit.keyFrame);
    EXPECT_EQ(unit.format->sampleRate, 16000);
    EXPECT_EQ(unit.format->channels, 1);
    EXPECT_EQ(unit.format->codecData, fromHex("1408"));
    EXPECT_EQ(unit.packets->packets.size(), 1U);
    EXPECT_TRUE(unit.packets->keyFrame);
}

TEST(AacDepacketizer, SeveralUnitsOfAPacketHaveTimesOfTheirOwn)
{
    Reception reception(track());
    const Bytes payload = hbr({2, 3, 1}, {1, 2, 3, 4, 5, 6});
    EXPECT_EQ(reception.push(payload, 0xffffff00, true), "");
    ASSERT_EQ(reception.units.size(), 3U);
    EXPECT_EQ(reception.units[0].bytes, (Bytes{1, 2}));
    EXPECT_EQ(reception.units[1].bytes, (Bytes{3, 4, 5}));
    EXPECT_EQ(reception.units[2].bytes, (Bytes{6}));
    EXPECT_EQ(reception.units[1].timestamp, 0x300U);
    EXPECT_EQ(payloadsOf(*reception.units[0].packets), std::vector<Bytes>{payload});
    EXPECT_EQ(reception.units[0].maxPayload, payload.size());
    EXPECT_EQ(reception.units[1].packets, nullptr);
}

TEST(AacDepacketizer, FragmentsAreJoined)
{
    Reception reception(track());
    const Bytes whole = counted(100);
    for (std::size_t at = 0; at < 100; at += 40)
    {
        const std::size_t end = std::min<std::size_t>(at + 40, 100);
        const Bytes part(whole.begin() + static_cast<std::ptrdiff_t>(at),
                         whole.begin() + static_cast<std::ptrdiff_t>(end));
        EXPECT_EQ(reception.push(hbr({100}, part), 9, end == 100), "");
    }
    ASSERT_EQ(reception.units.size(), 1U);
    EXPECT_EQ(reception.units[0].bytes, whole);
    EXPECT_EQ(reception.units[0].packets->packets.size(), 3U);
    EXPECT_TRUE(test::markerOf(*reception.units[0].packets, 2));
    EXPECT_EQ(reception.units[0].maxPayload, 44U);
}

TEST(AacDepacketizer, AUnitWithALostFragmentIsLeftOut)
{
    for (std::size_t lost = 0; lost < 3; ++lost)
    {
        Reception reception(track());
        for (std::size_t i = 0; i < 3; ++i)
        {
            if (i != lost)
            {
                reception.push(hbr({90}, counted(30)), 9, i == 2, i == lost + 1 ? 1 : 0);
            }
        }
        reception.push(hbr({5}, counted(5)), 1033, true, lost == 2 ? 1 : 0);
        ASSERT_EQ(reception.units.size(), 1U) << lost;
        EXPECT_EQ(reception.units[0].bytes, counted(5));
        EXPECT_FALSE(reception.units[0].damaged);
    }
}

TEST(AacDepacketizer, EveryPrefixOfAPacketIsRefusedOrAFragment)
{
    const Bytes payload = hbr({30, 20}, counted(50));
    for (std::size_t size = 1; size < payload.size(); ++size)
    {
        Reception reception(track());
        EXPECT_NE(
            reception.push({payload.begin(), payload.begin() + static_cast<std::ptrdiff_t>(size)}, 0, true),
            "")
            << size;
        EXPECT_TRUE(reception.units.empty());
    }
}

TEST(AacDepacketizer, MalformedPacketsAreRefused)
{
    Reception reception(track());
    EXPECT_EQ(reception.push({0, 16}, 0, true), "cut short");
    EXPECT_EQ(reception.push({0, 8, 1, 1, 1}, 0, true), "no unit");
    EXPECT_EQ(reception.push({0, 0, 1, 1, 1}, 0, true), "no unit");
    EXPECT_EQ(reception.push({0xff, 0xff, 0, 8, 1}, 0, true), "the length of the unit headers does not fit");
    EXPECT_EQ(reception.push({0, 16, 0, 0, 1}, 0, true), "an empty unit");
    EXPECT_EQ(reception.push({0, 32, 0, 8, 0, 9, 1, 1}, 0, true), "interleaved units are not read");
    EXPECT_EQ(reception.push({0, 32, 0, 8, 0, 16, 1, 1}, 0, true), "the sizes of units do not fit");
    EXPECT_TRUE(reception.units.empty());
    EXPECT_EQ(reception.push(hbr({1}, {7}), 0, true), "");
    EXPECT_EQ(reception.units.size(), 1U);
}

TEST(AacDepacketizer, FieldsHaveTheSizesOfTheModeOrTheDescription)
{
    PayloadDescription low = described("MPEG4-GENERIC", 16000, {{"mode", "AAC-lbr"}, {"config", "1408"}});
    Reception reception(low);
    // Two headers of 6 and 2 bits.
    EXPECT_EQ(reception.push({0, 16, 2 << 2, 1 << 2, 1, 2, 3}, 0, true), "");
    ASSERT_EQ(reception.units.size(), 2U);
    EXPECT_EQ(reception.units[0].bytes, (Bytes{1, 2}));
    // Its packets are not such as the track is described: each unit gets one of mode AAC-hbr.
    EXPECT_EQ(payloadsOf(*reception.units[0].packets), std::vector<Bytes>{hbr({2}, {1, 2})});
    EXPECT_EQ(payloadsOf(*reception.units[1].packets), std::vector<Bytes>{hbr({1}, {3})});
    EXPECT_EQ(reception.units[0].maxPayload, 6U);
    Reception spelledOut(track({{"sizelength", "16"}, {"indexlength", "0"}, {"indexdeltalength", "0"}}));
    EXPECT_EQ(spelledOut.push({0, 16, 0, 2, 1, 2}, 0, true), "");
    EXPECT_EQ(spelledOut.units.size(), 1U);
}

TEST(AacDepacketizer, TracksThatCannotBeReadSayWhy)
{
    EXPECT_EQ(Reception(track({{"config", "zz"}})).error,
              "the description has no config of AAC that can be read");
    EXPECT_EQ(Reception(track({{"config", "f8e85000"}})).error,
              "the description has no config of AAC that can be read");
    EXPECT_EQ(Reception(track({{"sizelength", "17"}})).error,
              "the sizes of AAC units (sizelength, indexlength, indexdeltalength) are not described");
    EXPECT_EQ(Reception(track({{"sizelength", "13 "}})).depacketizer, nullptr);
    EXPECT_EQ(Reception(described("MPEG4-GENERIC", 16000, {{"config", "1408"}})).depacketizer, nullptr);
    EXPECT_EQ(Reception(track({{"ctsdeltalength", "4"}})).error,
              "AAC with the field ctsdeltalength cannot be read");
}

TEST(AacDepacketizer, TicksFollowTheClockOfTheDescription)
{
    // The clock is that of the replicated band.
    PayloadDescription high = track({{"config", "2b920800"}});
    high.clockRate = 44100;
    Reception reception(high);
    reception.push(hbr({1}, {7}), 0, true);
    EXPECT_EQ(reception.units[0].duration, 2048U);
}

}  // namespace
}  // namespace refhost
