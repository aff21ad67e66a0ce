#include "refhost/rtp/ReceptionStatistics.h"

#include <gtest/gtest.h>

#include <cstdint>

#include "tests/refhost/base/Instants.h"

namespace refhost
{
namespace
{

using Verdict = ReceptionStatistics::Verdict;

using test::atMs;

constexpr RtpClock clock(8000);

class ReceptionStatisticsTest : public testing::Test
{
protected:
    /// A packet of 20 ms that arrives in time.
    ReceptionStatistics::Arrival onTime(std::uint16_t sequence)
    {
        return statistics.count(sequence, sequence * 160U, atMs(sequence * 20));
    }

    ReceptionStatistics statistics{clock};
};

TEST_F(ReceptionStatisticsTest, NoPacketReceivedMeansNoneLost)
{
    EXPECT_FALSE(statistics.any());
    const ReceptionReport report = statistics.report(atMs(0));
    EXPECT_EQ(0, report.fractionLost);
    EXPECT_EQ(0, report.cumulativeLost);
    EXPECT_EQ(0U, report.lastReport);
    EXPECT_EQ(0U, report.delaySinceReport);
}

TEST_F(ReceptionStatisticsTest, FractionLostIsOfTheIntervalAndCumulativeLostOfAll)
{
    for (std::uint16_t sequence = 100; sequence < 200; ++sequence)
    {
        if (sequence % 4 != 3)  // 25 of 100; the last one of them is not missed yet
        {
            onTime(sequence);
        }
    }
    ReceptionReport report = statistics.report(atMs(0));
    EXPECT_EQ(198U, report.highestSequence);
    EXPECT_EQ(24, report.cumulativeLost);
    EXPECT_EQ(24 * 256 / 99, report.fractionLost);
    for (std::uint16_t sequence = 199; sequence < 299; ++sequence)
    {
        onTime(sequence);
    }
    report = statistics.report(atMs(0));
    EXPECT_EQ(0, report.fractionLost);
    EXPECT_EQ(24, report.cumulativeLost);
    EXPECT_EQ(298U, report.highestSequence);
}

TEST_F(ReceptionStatisticsTest, LateAndDuplicatePacketsCountAsReceived)
{
    onTime(10);
    onTime(12);
    EXPECT_EQ(1, statistics.lost());
    EXPECT_EQ(11U, onTime(11).sequence);
    EXPECT_EQ(0, statistics.lost());
    EXPECT_EQ(Verdict::counted, onTime(11).verdict);
    EXPECT_EQ(-1, statistics.lost());
    EXPECT_EQ(0, statistics.report(atMs(0)).fractionLost);
    EXPECT_EQ(12U, statistics.report(atMs(0)).highestSequence);
}

TEST_F(ReceptionStatisticsTest, SequenceGoesOnOverItsWrap)
{
    EXPECT_EQ(65534U, onTime(65534).sequence);
    EXPECT_EQ(65536U, onTime(0).sequence);
    EXPECT_EQ(65535U, onTime(65535).sequence);
    EXPECT_EQ(65537U, onTime(1).sequence);
    EXPECT_EQ(65537U, statistics.report(atMs(0)).highestSequence);
    EXPECT_EQ(0, statistics.lost());
}

TEST_F(ReceptionStatisticsTest, OnePacketOutOfSequenceIsIgnoredAndTwoInOrderRestart)
{
    EXPECT_EQ(Verdict::started, onTime(100).verdict);
    EXPECT_EQ(Verdict::outOfSequence, onTime(30000).verdict);
    EXPECT_EQ(Verdict::counted, onTime(101).verdict);
    EXPECT_EQ(Verdict::outOfSequence, onTime(40000).verdict);
    EXPECT_EQ(Verdict::outOfSequence, onTime(50000).verdict);
    EXPECT_EQ(0, statistics.lost());
    const auto again = onTime(50001);
    EXPECT_EQ(Verdict::started, again.verdict);
    EXPECT_EQ(50001U, again.sequence);
    EXPECT_EQ(0, statistics.lost());
}

TEST_F(ReceptionStatisticsTest, JitterIsTheSmoothedChangeOfTransit)
{
    // Every second packet is 10 ms late: the transit changes by 80 ticks each time.
    std::uint32_t expected = 0;
    for (std::uint16_t i = 0; i < 50; ++i)
    {
        statistics.count(i, i * 160U, atMs(i * 20 + (i % 2) * 10));
        if (i > 0)
        {
            expected += 80U - ((expected + 8U) >> 4U);
        }
    }
    EXPECT_EQ(expected >> 4U, statistics.report(atMs(0)).jitter);
    EXPECT_GT(expected >> 4U, 70U);
}

TEST_F(ReceptionStatisticsTest, EvenArrivalsHaveNoJitterHoweverLongTheClockRuns)
{
    const std::int64_t years = 100'000'000LL * 1000;
    for (std::uint16_t i = 0; i < 1000; ++i)
    {
        statistics.count(i, 0xffffff00U + i * 160U, atMs(years + i * 20));
    }
    EXPECT_EQ(0U, statistics.report(atMs(0)).jitter);
}

TEST_F(ReceptionStatisticsTest, DelaySinceTheSenderReportIsIn65536ths)
{
    onTime(1);
    statistics.noteSenderReport(0x11223344, atMs(5000));
    const ReceptionReport report = statistics.report(atMs(6500));
    EXPECT_EQ(0x11223344U, report.lastReport);
    EXPECT_EQ(0x18000U, report.delaySinceReport);
}

TEST_F(ReceptionStatisticsTest, LossesSaturateAtTheirFields)
{
    // Each packet is followed by a gap of 1999: 24 bits overflow.
    std::uint16_t sequence = 0;
    for (int i = 0; i < 9000; ++i)
    {
        onTime(sequence);
        sequence = static_cast<std::uint16_t>(sequence + 2000);
    }
    const ReceptionReport report = statistics.report(atMs(0));
    EXPECT_EQ(0x7fffff, report.cumulativeLost);
    EXPECT_EQ(255, report.fractionLost);
}

}  // namespace
}  // namespace refhost
