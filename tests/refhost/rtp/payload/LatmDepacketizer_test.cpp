#include "refhost/rtp/payload/LatmDepacketizer.h"

#include <gtest/gtest.h>

#include "refhost/rtp/payload/LatmConfig.h"
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
using test::Reception;

PayloadDescription track(const char* config)
{
    return described("MP4A-LATM", 16000, {{"cpresent", "0"}, {"config", config}});
}

// audioMuxVersion 0, one frame, AudioSpecificConfig 1408 shifted by 15 bits, frames of varying size.
constexpr const char* oneUnit = "400028103fc0";
constexpr const char* twoUnits = "410028103fc0";

TEST(LatmDepacketizer, TheFormatIsThatOfTheConfig)
{
    const Reception reception(track(oneUnit));
    ASSERT_NE(reception.depacketizer, nullptr) << reception.error;
    const auto format = reception.depacketizer->format();
    EXPECT_EQ(format->codec, Codec::aac);
    EXPECT_EQ(format->codecData, fromHex("1408"));
    EXPECT_EQ(format->sampleRate, 16000);
    EXPECT_EQ(format->channels, 1);
}

TEST(LatmDepacketizer, TheConfigMayAnnounceAReplicatedBandAtItsEnd)
{
    // AudioSpecificConfig 140856e500: the extension says that there is none.
    const Reception reception(track("40002810adca003fc0"));
    ASSERT_NE(reception.depacketizer, nullptr) << reception.error;
    EXPECT_EQ(reception.depacketizer->format()->codecData, fromHex("140856e500"));
}

TEST(LatmDepacketizer, AUnitStandsBehindItsSize)
{
    Reception reception(track(oneUnit));
    for (const std::size_t size : {1, 254, 255, 256, 510, 1300})
    {
        reception.units.clear();
        Bytes length(size / 255, 0xff);
        length.push_back(static_cast<std::uint8_t>(size % 255));
        EXPECT_EQ(reception.push(joined({length, counted(size)}), 77, true), "");
        ASSERT_EQ(reception.units.size(), 1U);
        EXPECT_EQ(reception.units[0].bytes, counted(size));
        EXPECT_EQ(reception.units[0].timestamp, 77U);
        EXPECT_EQ(reception.units[0].duration, 1024U);
        // Packets are of mode AAC-hbr, as the track is described.
        ASSERT_NE(reception.units[0].packets, nullptr);
        EXPECT_EQ(test::payloadsOf(*reception.units[0].packets),
                  std::vector<Bytes>{joined(
                      {{0, 16, static_cast<std::uint8_t>(size >> 5U), static_cast<std::uint8_t>(size << 3U)},
                       counted(size)})});
        EXPECT_EQ(reception.units[0].maxPayload, size + 4);
    }
}

TEST(LatmDepacketizer, AnElementMayHoldSeveralUnits)
{
    Reception reception(track(twoUnits));
    EXPECT_EQ(reception.push({2, 1, 2, 1, 3}, 1000, true), "");
    ASSERT_EQ(reception.units.size(), 2U);
    EXPECT_EQ(reception.units[0].bytes, (Bytes{1, 2}));
    EXPECT_EQ(reception.units[1].bytes, (Bytes{3}));
    EXPECT_EQ(reception.units[1].timestamp, 2024U);
}

TEST(LatmDepacketizer, FragmentsAreJoinedWithOrWithoutMarkers)
{
    for (const bool marker : {false, true})
    {
        Reception reception(track(oneUnit));
        const Bytes whole = joined({{200}, counted(200)});
        EXPECT_EQ(reception.push({whole.begin(), whole.begin() + 100}, 5, false), "");
        EXPECT_EQ(reception.push({whole.begin() + 100, whole.end()}, 5, marker), "");
        ASSERT_EQ(reception.units.size(), 1U);
        EXPECT_EQ(reception.units[0].bytes, counted(200));
    }
}

TEST(LatmDepacketizer, AnElementWithALostFragmentIsLeftOut)
{
    const Bytes whole = joined({{200}, counted(200)});
    Reception reception(track(oneUnit));
    reception.push({whole.begin(), whole.begin() + 50}, 5, false);
    EXPECT_NE(reception.push({whole.begin() + 100, whole.end()}, 5, true, 1), "");
    EXPECT_EQ(reception.push(whole, 1029, true), "");
    ASSERT_EQ(reception.units.size(), 1U);
    EXPECT_EQ(reception.units[0].bytes, counted(200));
}

TEST(LatmDepacketizer, EveryPrefixOfAPacketIsRefused)
{
    const Bytes whole = joined({{0xff, 20}, counted(275)});
    for (std::size_t size = 1; size < whole.size(); ++size)
    {
        Reception reception(track(oneUnit));
        EXPECT_EQ(reception.push({whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size)}, 5, true),
                  "the sizes of units do not fit");
        EXPECT_TRUE(reception.units.empty());
    }
}

TEST(LatmDepacketizer, AnElementWithoutEndIsBounded)
{
    Reception reception(track(oneUnit));
    std::size_t refused = 0;
    for (int i = 0; i < 100; ++i)
    {
        refused += reception.push(Bytes(1400, 0xff), 5, false).empty() ? 0 : 1;
    }
    EXPECT_GT(refused, 0U);
}

TEST(LatmDepacketizer, OtherConfigurationsAreRefused)
{
    EXPECT_EQ(Reception(described("MP4A-LATM", 16000)).error,
              "LATM with its configuration in band (cpresent=1) cannot be read");
    EXPECT_EQ(Reception(described("MP4A-LATM", 16000, {{"cpresent", "1"}, {"config", oneUnit}})).depacketizer,
              nullptr);
    EXPECT_NE(Reception(described("MP4A-LATM", 16000, {{"config", oneUnit}})).depacketizer, nullptr);
    const std::string whole = oneUnit;
    for (std::size_t size = 0; size < 8; size += 2)
    {
        EXPECT_EQ(Reception(track(whole.substr(0, size).c_str())).depacketizer, nullptr) << size;
    }
    // What stands behind the AudioSpecificConfig may be missing.
    EXPECT_NE(Reception(track("40002810")).depacketizer, nullptr);
    // Two programs, two layers, frames of a fixed size.
    EXPECT_EQ(Reception(track("401028103fc0")).depacketizer, nullptr);
    EXPECT_EQ(Reception(track("400228103fc0")).depacketizer, nullptr);
    EXPECT_EQ(Reception(track("4000281047c0")).depacketizer, nullptr);
}

TEST(LatmConfig, OfTheSecondVersionHasTheLengthOfTheAudioConfig)
{
    // Version 1, taraBufferFullness 0, ascLen 16 in one byte each.

    Bytes bits;
    std::string text =
        "10"
        "0000000000"
        "1"
        "000000"
        "0000"
        "000"
        "0000010000"
        "0001010000001000"
        "000"
        "11111111"
        "00";
    while (text.size() % 8 != 0)
    {
        text += '0';
    }
    for (std::size_t i = 0; i < text.size(); i += 8)
    {
        bits.push_back(static_cast<std::uint8_t>(std::stoul(text.substr(i, 8), nullptr, 2)));
    }
    const auto config = LatmConfig::read(bits);
    ASSERT_TRUE(config);
    EXPECT_EQ(config->audioConfig, fromHex("1408"));
    EXPECT_EQ(config->units, 1U);
}

}  // namespace
}  // namespace refhost
