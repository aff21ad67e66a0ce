#include "bench/origin/CannedVideo.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

namespace rtsporigin
{
namespace
{

const Bytes sps{0x67, 0x42, 0xC0, 0x1E, 0x01};
const Bytes pps{0x68, 0xCE};

void append(Bytes& stream, const Bytes& nal)
{
    const Bytes startCode{0, 0, 0, 1};
    stream.insert(stream.end(), startCode.begin(), startCode.end());
    stream.insert(stream.end(), nal.begin(), nal.end());
}

/// A slice with first_mb_in_slice 0, or the second one of a frame.
Bytes slice(std::uint8_t header, bool first, std::size_t size)
{
    Bytes nal(size, 0x55);
    nal[0] = header;
    nal[1] = first ? 0x88 : 0x40;
    return nal;
}

Bytes stream(const std::vector<Bytes>& nals)
{
    Bytes bytes;
    for (const Bytes& nal : nals)
    {
        append(bytes, nal);
    }
    return bytes;
}

/// Payloads of a unit's packets.
std::vector<Bytes> payloads(const CannedUnit& unit)
{
    std::vector<Bytes> found;
    for (const std::size_t place : unit.packets)
    {
        const std::size_t size = unit.bytes[place + 2] * std::size_t{256} + unit.bytes[place + 3];
        const auto first = unit.bytes.begin() + static_cast<std::ptrdiff_t>(place) + 4;
        found.emplace_back(first + 12, first + static_cast<std::ptrdiff_t>(size));
    }
    return found;
}

std::vector<bool> markers(const CannedUnit& unit)
{
    std::vector<bool> found;
    for (const std::size_t place : unit.packets)
    {
        found.push_back((unit.bytes[place + 5] & 0x80) != 0);
    }
    return found;
}

TEST(CannedVideo, CutsAccessUnitsAtFirstSlicesAndAtWhatPrecedesThem)
{
    const Bytes key = slice(0x65, true, 20);
    const Bytes keyRest = slice(0x65, false, 20);
    const Bytes next = slice(0x41, true, 20);
    const CannedVideo video =
        CannedVideo::pack(stream({{0x09, 0x10}, sps, pps, key, keyRest, next, {0x06, 0x05}, next}));
    ASSERT_EQ(video.units.size(), 3U);
    EXPECT_EQ(payloads(video.units[0]), (std::vector<Bytes>{sps, pps, key, keyRest}));
    EXPECT_EQ(payloads(video.units[1]), (std::vector<Bytes>{next}));
    EXPECT_EQ(payloads(video.units[2]), (std::vector<Bytes>{{0x06, 0x05}, next}));
    EXPECT_TRUE(video.units[0].keyFrame);
    EXPECT_FALSE(video.units[1].keyFrame);
}

TEST(CannedVideo, MarksTheLastPacketOfEachAccessUnit)
{
    const CannedVideo video =
        CannedVideo::pack(stream({sps, pps, slice(0x65, true, 20), slice(0x41, true, 20)}));
    EXPECT_THAT(markers(video.units.at(0)), testing::ElementsAre(false, false, true));
    EXPECT_THAT(markers(video.units.at(1)), testing::ElementsAre(true));
}

TEST(CannedVideo, FragmentsWhatFitsNoPacket)
{
    Bytes key = slice(0x65, true, 1 + 2 * (CannedVideo::maxPayload - 2) + 7);
    key.back() = 0x77;
    const CannedVideo video = CannedVideo::pack(stream({sps, pps, key}));
    const std::vector<Bytes> packets = payloads(video.units.at(0));
    ASSERT_EQ(packets.size(), 5U);
    EXPECT_EQ(packets[2].size(), CannedVideo::maxPayload);
    // FU indicator with the NAL unit's reference bits, FU header with start, middle and end.
    EXPECT_EQ(packets[2][0], 0x7C);
    EXPECT_EQ(packets[2][1], 0x85);
    EXPECT_EQ(packets[3][1], 0x05);
    EXPECT_EQ(packets[4][1], 0x45);
    Bytes joined{key[0]};
    for (std::size_t i = 2; i < packets.size(); ++i)
    {
        joined.insert(joined.end(), packets[i].begin() + 2, packets[i].end());
    }
    EXPECT_EQ(joined, key);
}

TEST(CannedVideo, DescribesItsParameterSets)
{
    const CannedVideo video = CannedVideo::pack(stream({sps, pps, slice(0x65, true, 20)}));
    EXPECT_EQ(video.formatParameters(),
              "packetization-mode=1;profile-level-id=42C01E;sprop-parameter-sets=Z0LAHgE=,aM4=");
}

TEST(CannedVideo, RefusesWhatDoesNotStartWithAKeyFrame)
{
    EXPECT_THROW(CannedVideo::pack({}), std::runtime_error);
    EXPECT_THROW(CannedVideo::pack({1, 2, 3, 4}), std::runtime_error);
    EXPECT_THROW(CannedVideo::pack(stream({sps, pps})), std::runtime_error);
    EXPECT_THROW(CannedVideo::pack(stream({sps, pps, slice(0x41, true, 20)})), std::runtime_error);
    EXPECT_THROW(CannedVideo::pack(stream({slice(0x65, true, 20)})), std::runtime_error);
}

}  // namespace
}  // namespace rtsporigin
