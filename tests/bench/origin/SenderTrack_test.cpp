#include "bench/origin/SenderTrack.h"

#include <gtest/gtest.h>

namespace rtsporigin
{
namespace
{

using std::chrono::milliseconds;
using std::chrono::seconds;

std::uint32_t read32(const Bytes& bytes, std::size_t place)
{
    std::uint32_t value = 0;
    for (std::size_t i = 0; i < 4; ++i)
    {
        value = value << 8 | bytes.at(place + i);
    }
    return value;
}

std::uint32_t read16(const Bytes& bytes, std::size_t place)
{
    return read32(bytes, place) >> 16;
}

CannedUnit twoPackets()
{
    CannedUnit unit = cannedTone();
    const Bytes packet = unit.bytes;
    unit.packets.push_back(unit.bytes.size());
    unit.bytes.insert(unit.bytes.end(), packet.begin(), packet.end());
    return unit;
}

TEST(SenderTrack, NumbersPacketsOfAllUnitsOnItsChannel)
{
    SenderTrack track(8000, 1);
    track.setChannels(6, 7);
    CannedUnit unit = twoPackets();
    const std::uint16_t first = track.nextSequence();
    track.stamp(unit, seconds(1));
    track.stamp(unit, seconds(2));
    EXPECT_EQ(unit.bytes[1], 6);
    EXPECT_EQ(read16(unit.bytes, 4 + 2), static_cast<std::uint16_t>(first + 2));
    EXPECT_EQ(read16(unit.bytes, unit.packets[1] + 4 + 2), static_cast<std::uint16_t>(first + 3));
    EXPECT_EQ(read32(unit.bytes, 4 + 4), read32(unit.bytes, unit.packets[1] + 4 + 4));
}

TEST(SenderTrack, CountsTimestampsInItsClockRate)
{
    const SenderTrack track(90000, 1);
    EXPECT_EQ(track.timestamp(milliseconds(1040)) - track.timestamp(milliseconds(1000)), 3600U);
    // Also where nanoseconds times 90000 pass 64 bits.
    EXPECT_EQ(track.timestamp(seconds(1'000'000)) - track.timestamp(seconds(999'999)), 90000U);
}

TEST(SenderTrack, ReportsTheInstantByBothClocksAndWhatWasSent)
{
    SenderTrack track(8000, 1);
    track.setChannels(2, 3);
    CannedUnit unit = twoPackets();
    track.stamp(unit, seconds(1));
    const Bytes report = track.report(seconds(2), seconds(100) + milliseconds(500));
    EXPECT_EQ(report[0], '$');
    EXPECT_EQ(report[1], 3);
    EXPECT_EQ(read16(report, 2), report.size() - 4);
    EXPECT_EQ(report[4 + 1], 200);
    EXPECT_EQ(read16(report, 4 + 2), 6U);
    EXPECT_EQ(read32(report, 4 + 4), read32(unit.bytes, 4 + 8)) << "SSRC";
    EXPECT_EQ(read32(report, 4 + 8), 2'208'988'900U);
    EXPECT_EQ(read32(report, 4 + 12), 0x80000000U);
    EXPECT_EQ(read32(report, 4 + 16), track.timestamp(seconds(2)));
    EXPECT_EQ(read32(report, 4 + 20), 2U);
    EXPECT_EQ(read32(report, 4 + 24), 640U);
    EXPECT_EQ(report[4 + 28 + 1], 202);
    EXPECT_EQ(4 + 28 + 4 * (read16(report, 4 + 28 + 2) + 1), report.size());
    EXPECT_EQ(report.back(), 0);
}

TEST(SenderTrack, DiffersFromItsNeighbours)
{
    EXPECT_NE(SenderTrack(90000, 4).timestamp(seconds(0)), SenderTrack(90000, 8).timestamp(seconds(0)));
    EXPECT_NE(SenderTrack(90000, 4).nextSequence(), SenderTrack(90000, 8).nextSequence());
}

}  // namespace
}  // namespace rtsporigin
