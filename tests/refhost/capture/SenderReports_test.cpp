#include "refhost/capture/SenderReports.h"

#include <gtest/gtest.h>

#include <vector>

#include "refhost/rtp/RtcpWriter.h"

namespace refhost
{
namespace
{

struct Found
{
    std::vector<SenderReports::Report> reports;
    std::vector<std::uint32_t> byes;
};

Found read(const std::uint8_t* data, std::size_t size)
{
    Found found;
    SenderReports::read(
        data, size, [&](const SenderReports::Report& report) { found.reports.push_back(report); },
        [&](std::uint32_t ssrc) { found.byes.push_back(ssrc); });
    return found;
}

TEST(SenderReports, FindsReportAndBye)
{
    constexpr WallTime wall(Duration(1'800'000'000'123'456'789));
    const RtcpWriter packet({5, wall, 77, 1, 2}, RtcpWriter::randomName(), true);
    const Found found = read(packet.data(), packet.size());
    ASSERT_EQ(found.reports.size(), 1U);
    EXPECT_EQ(found.reports[0].ssrc, 5U);
    EXPECT_EQ(found.reports[0].timestamp, 77U);
    EXPECT_EQ(found.reports[0].wall, wall);
    EXPECT_EQ(found.byes, std::vector<std::uint32_t>{5});
}

TEST(SenderReports, SenderWithoutWallClockHasNoTime)
{
    std::vector<std::uint8_t> packet(28);
    packet[0] = 0x80;
    packet[1] = 200;
    packet[3] = 6;
    const Found found = read(packet.data(), packet.size());
    ASSERT_EQ(found.reports.size(), 1U);
    EXPECT_FALSE(found.reports[0].wall.has_value());
}

TEST(SenderReports, TimesContinueAfterTheEndOfTheEra)
{
    std::vector<std::uint8_t> packet(28);
    packet[0] = 0x80;
    packet[1] = 200;
    packet[3] = 6;
    packet[11] = 1;  // one second after 2036-02-07 06:28:16
    EXPECT_EQ(read(packet.data(), packet.size()).reports.at(0).wall, wallTimeOfUnix(2'085'978'497));
}

TEST(SenderReports, EveryPrefixIsReadWithinItsBounds)
{
    const RtcpWriter packet({5, WallTime(Duration(1)), 77, 1, 2}, RtcpWriter::randomName(), true);
    for (std::size_t size = 0; size < packet.size(); ++size)
    {
        const std::vector<std::uint8_t> exact(packet.data(), packet.data() + size);
        const Found found = read(exact.data(), exact.size());
        EXPECT_EQ(found.reports.size(), size >= 28 ? 1U : 0U);
        EXPECT_TRUE(found.byes.empty());
    }
}

}  // namespace
}  // namespace refhost
