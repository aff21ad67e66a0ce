#include "bench/canned/CannedMedia.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

namespace rtspcanned
{
namespace
{

using testing::ElementsAre;
using testing::ElementsAreArray;

std::vector<std::uint8_t> packetOf(std::size_t payload, std::uint8_t fill)
{
    std::vector<std::uint8_t> packet(12 + payload, fill);
    packet[0] = 0x80;
    return packet;
}

CannedUnit unitOf(const std::vector<std::vector<std::uint8_t>>& packets)
{
    CannedUnit unit;
    for (const auto& packet : packets)
    {
        unit.append(packet.data(), packet.size());
    }
    return unit;
}

TEST(CannedUnit, PacketsStandBackToBackForUdpAndFramedForTcp)
{
    const CannedUnit unit = unitOf({packetOf(1, 7), packetOf(300, 9)});
    ASSERT_EQ(unit.datagrams.size(), 13U + 312U);
    ASSERT_EQ(unit.framed.size(), 4U + 13U + 4U + 312U);
    EXPECT_EQ(unit.packets[1].offset, 13U);
    EXPECT_EQ(unit.packets[1].size, 312U);
    EXPECT_THAT(std::vector<std::uint8_t>(unit.framed.begin(), unit.framed.begin() + 4),
                ElementsAre('$', 0, 0, 13));
    EXPECT_THAT(std::vector<std::uint8_t>(unit.framed.begin() + 17, unit.framed.begin() + 21),
                ElementsAre('$', 0, 1, 56));
    EXPECT_THAT(std::vector<std::uint8_t>(unit.framed.begin() + 21, unit.framed.end()),
                ElementsAreArray(packetOf(300, 9)));
}

TEST(CannedUnit, StampWritesSequenceAndTimestampIntoEveryPacketOfBothForms)
{
    CannedUnit unit = unitOf({packetOf(1, 7), packetOf(2, 9)});
    unit.stamp(0xffff, 0x01020304);
    const auto headerAt = [](const std::vector<std::uint8_t>& bytes, std::size_t at)
    {
        return std::vector<std::uint8_t>(bytes.begin() + static_cast<std::ptrdiff_t>(at) + 2,
                                         bytes.begin() + static_cast<std::ptrdiff_t>(at) + 8);
    };
    EXPECT_THAT(headerAt(unit.datagrams, 0), ElementsAre(0xff, 0xff, 1, 2, 3, 4));
    EXPECT_THAT(headerAt(unit.datagrams, 13), ElementsAre(0, 0, 1, 2, 3, 4));
    EXPECT_THAT(headerAt(unit.framed, 4), ElementsAre(0xff, 0xff, 1, 2, 3, 4));
    EXPECT_THAT(headerAt(unit.framed, 21), ElementsAre(0, 0, 1, 2, 3, 4));
    EXPECT_EQ(unit.datagrams[0], 0x80);
    EXPECT_EQ(unit.datagrams[8], 7) << "the SSRC stays";
}

}  // namespace
}  // namespace rtspcanned
