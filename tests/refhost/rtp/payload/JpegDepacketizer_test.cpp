#include "refhost/rtp/payload/JpegDepacketizer.h"

#include <gtest/gtest.h>

#include "refhost/rtp/payload/JpegTables.h"
#include "tests/refhost/rtp/payload/JpegUnits.h"

namespace refhost
{
namespace
{

using test::Bytes;
using test::counted;
using test::described;
using test::fromHex;
using test::joined;
using test::jpegHeader;
using test::Reception;

/// The main header of 64 x 48 pixels.
Bytes front(std::size_t offset, std::uint8_t type = 1, std::uint8_t quality = 85)
{
    return {0,
            static_cast<std::uint8_t>(offset >> 16U),
            static_cast<std::uint8_t>(offset >> 8U),
            static_cast<std::uint8_t>(offset),
            type,
            quality,
            8,
            6};
}

/// A reception whose markers are believed: one frame was received whole.
class Believed : public Reception
{
public:
    Believed() : Reception(described("JPEG", 90000))
    {
        push(joined({front(0), {1}}), 0, true);
        push(joined({front(0), {1}}), 3000, true);
        units.clear();
    }
};

Bytes fileOf(std::uint8_t quality, const Bytes& scan, bool halfHeight = true)
{
    JpegHeader header = jpegHeader(64, 48, halfHeight);
    header.quantizers = JpegTables::quantizers(quality);
    Bytes file;
    header.writeTo(file);
    return joined({file, scan, {0xff, 0xd9}});
}

TEST(JpegTables, OfAQualityAreThoseOfTheUsualEncoder)
{
    // Of libjpeg for quality 85.
    EXPECT_EQ(
        JpegTables::quantizers(85),
        joined({fromHex("0503040404030504040405050506070c08070707070f0b0b090c110f1212110f111113161c1713141a15"
                        "11111821181a1d1d1f1f1f13172224221e241c1e1f1e"),
                fromHex("0505050706070e08080e1e1411141e1e1e1e1e1e1e1e1e1e1e1e1e1e1e1e1e1e1e1e1e1e1e1e1e1e1e1e"
                        "1e1e1e1e1e1e1e1e1e1e1e1e1e1e1e1e1e1e1e1e1e1e")}));
    EXPECT_EQ(JpegTables::quantizers(1)[0], 255);
    EXPECT_EQ(JpegTables::quantizers(99)[0], 1);
}

TEST(JpegDepacketizer, AFrameIsAFileOfItsScan)
{
    Believed reception;
    const Bytes scan = counted(100);
    EXPECT_EQ(reception.push(joined({front(0), {scan.begin(), scan.begin() + 60}}), 6000, false), "");
    EXPECT_EQ(reception.push(joined({front(60), {scan.begin() + 60, scan.end()}}), 6000, true), "");
    ASSERT_EQ(reception.units.size(), 1U);
    EXPECT_EQ(reception.units[0].bytes, fileOf(85, scan));
    EXPECT_EQ(reception.units[0].format->width, 64);
    EXPECT_EQ(reception.units[0].format->height, 48);
    EXPECT_TRUE(reception.units[0].format->codecData.empty());
    EXPECT_TRUE(reception.units[0].keyFrame);
    EXPECT_FALSE(reception.units[0].damaged);
    EXPECT_EQ(reception.units[0].packets->packets.size(), 2U);
    EXPECT_EQ(reception.units[0].maxPayload, 68U);
}

TEST(JpegDepacketizer, TypeZeroIsOf422)
{
    Believed reception;
    reception.push(joined({front(0, 0), {1, 2}}), 6000, true);
    ASSERT_EQ(reception.units.size(), 1U);
    EXPECT_EQ(reception.units[0].bytes, fileOf(85, {1, 2}, false));
}

TEST(JpegDepacketizer, RestartMarkersAreDescribed)
{
    Believed reception;
    reception.push(joined({front(0, 65), {0x01, 0x02, 0xff, 0xff}, {1, 2, 0xff, 0xd9}}), 6000, true);
    ASSERT_EQ(reception.units.size(), 1U);
    JpegHeader header = jpegHeader(64, 48, true, 0x0102);
    header.quantizers = JpegTables::quantizers(85);
    Bytes file;
    header.writeTo(file);
    EXPECT_EQ(reception.units[0].bytes, joined({file, {1, 2, 0xff, 0xd9}}));
}

TEST(JpegDepacketizer, QuantizersInBandAreKeptForTheirQuality)
{
    Believed reception;
    const Bytes tables = counted(128, 9);
    EXPECT_EQ(reception.push(joined({front(0, 1, 200), {0, 0, 0, 0}, {1}}), 6000, true),
              "quantizers that were not sent yet");
    reception.push(joined({front(0, 1, 200), {0, 0, 0, 128}, tables, {1}}), 9000, true);
    reception.push(joined({front(0, 1, 200), {0, 0, 0, 0}, {2}}), 12000, true);
    reception.push(joined({front(0, 1, 255), {0, 0, 0, 128}, tables, {3}}), 15000, true);
    EXPECT_EQ(reception.push(joined({front(0, 1, 255), {0, 0, 0, 0}, {4}}), 18000, true),
              "quantizers that were not sent yet");
    ASSERT_EQ(reception.units.size(), 3U);
    for (std::uint8_t i = 0; i < 3; ++i)
    {
        JpegHeader header = jpegHeader(64, 48);
        header.quantizers = tables;
        Bytes file;
        header.writeTo(file);
        EXPECT_EQ(reception.units[i].bytes, joined({file, {static_cast<std::uint8_t>(i + 1), 0xff, 0xd9}}));
    }
}

TEST(JpegDepacketizer, OfALostPacketRemainsWhatPrecedesIt)
{
    const Bytes scan = counted(90);
    for (std::size_t lost = 0; lost < 3; ++lost)
    {
        Believed reception;
        for (std::size_t i = 0; i < 3; ++i)
        {
            const auto at = static_cast<std::ptrdiff_t>(30 * i);
            if (i != lost)
            {
                reception.push(joined({front(30 * i), {scan.begin() + at, scan.begin() + at + 30}}), 6000,
                               i == 2, i == lost + 1 ? 1 : 0);
            }
        }
        reception.push(joined({front(0), {1}}), 9000, true, lost == 2 ? 1 : 0);
        ASSERT_EQ(reception.units.size(), 2U);
        EXPECT_TRUE(reception.units[0].damaged);
        EXPECT_FALSE(reception.units[1].damaged);
        const Bytes rest(scan.begin(), scan.begin() + static_cast<std::ptrdiff_t>(30 * lost));
        EXPECT_EQ(reception.units[0].bytes, lost == 0 ? Bytes() : fileOf(85, rest));
        // Behind the gap receivers would not notice it.
        ASSERT_EQ(reception.units[0].packets != nullptr, lost > 0);
        if (lost > 0)
        {
            EXPECT_EQ(reception.units[0].packets->packets.size(), lost);
            EXPECT_TRUE(test::markerOf(*reception.units[0].packets, lost - 1));
        }
    }
}

TEST(JpegDepacketizer, MarkersOnEveryPacketAreFoundOut)
{
    Reception reception(described("JPEG", 90000));
    for (std::uint32_t i = 0; i < 3; ++i)
    {
        reception.push(joined({front(0), {1, 2}}), i * 3000, true);
        reception.push(joined({front(2), {3, 4}}), i * 3000, true);
    }
    ASSERT_EQ(reception.units.size(), 2U);
    EXPECT_EQ(reception.units[1].bytes, fileOf(85, {1, 2, 3, 4}));
    EXPECT_FALSE(reception.units[0].damaged);
}

TEST(JpegDepacketizer, FramesEndWithTheTimestampWhereMarkersAreNeverSet)
{
    Reception reception(described("JPEG", 90000));
    for (std::uint32_t i = 0; i < 3; ++i)
    {
        reception.push(joined({front(0), {1, 2}}), i * 3000, false);
    }
    EXPECT_EQ(reception.units.size(), 2U);
    reception.depacketizer->flush();
    EXPECT_EQ(reception.units.size(), 3U);
}

TEST(JpegDepacketizer, MalformedPacketsAreRefused)
{
    Believed reception;
    EXPECT_EQ(reception.push(front(0), 6000, true), "cut short");
    EXPECT_EQ(reception.push(joined({front(0, 2), {1}}), 6000, true),
              "a type of JPEG other than 4:2:0 and 4:2:2");
    EXPECT_EQ(reception.push(joined({front(0, 1, 0), {1}}), 6000, true), "a reserved quality");
    EXPECT_EQ(reception.push(joined({front(0, 1, 100), {1}}), 6000, true), "a reserved quality");
    EXPECT_EQ(reception.push({0, 0, 0, 0, 1, 85, 0, 6, 1}, 6000, true),
              "a frame without size, or of more than 2040 pixels");
    EXPECT_EQ(reception.push(joined({front(0, 1, 255), {0, 3, 0, 128}, counted(129)}), 6000, true),
              "quantizers of 16 bits are not read");
    EXPECT_EQ(reception.push(joined({front(0, 1, 255), {0, 0, 0, 100}, counted(129)}), 6000, true),
              "an odd number of quantizers");
    EXPECT_TRUE(reception.units.empty());
}

TEST(JpegDepacketizer, EveryPrefixOfAPacketIsTakenOrRefused)
{
    const Bytes packet =
        joined({front(0, 65, 255), {0, 4, 0xff, 0xff}, {0, 0, 0, 128}, counted(128), counted(20)});
    for (std::size_t size = 1; size <= packet.size(); ++size)
    {
        Believed reception;
        const std::string refused =
            reception.push({packet.begin(), packet.begin() + static_cast<std::ptrdiff_t>(size)}, 6000, true);
        EXPECT_EQ(refused.empty(), size > 8 + 4 + 4 + 128) << size;
        EXPECT_EQ(reception.units.size(), refused.empty() ? 1U : 0U);
    }
}

TEST(JpegDepacketizer, AFrameThatIsTooLargeIsLeftOut)
{
    Believed reception;
    const Bytes part = counted(60000);
    std::size_t refused = 0;
    for (std::size_t offset = 0; offset < Depacketizer::maxUnitBytes; offset += part.size())
    {
        refused += reception.push(joined({front(offset), part}), 6000, false).empty() ? 0 : 1;
    }
    EXPECT_GT(refused, 0U);
    reception.push(joined({front(0), {1}}), 9000, true);
    ASSERT_EQ(reception.units.size(), 1U);
    EXPECT_EQ(reception.units[0].timestamp, 9000U);
}

}  // namespace
}  // namespace refhost
