#include "bench/load/TrackWatch.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

namespace rtspload
{
namespace
{

using testing::HasSubstr;

constexpr std::uint8_t keySlice = 0x65;
constexpr std::uint8_t otherSlice = 0x41;

class TrackWatchTest : public testing::Test
{
protected:
    TrackWatchTest()
    {
        startWatch(true);
    }

    void startWatch(bool ordered)
    {
        watch.start("H264", ordered);
        watch.expectSsrc(0x11223344);
        watch.expectFirst(65534, 1000);
    }

    void receive(std::uint16_t sequence, std::uint8_t payload = otherSlice, std::uint8_t ssrcEnd = 0x44,
                 std::uint8_t timestampEnd = 0xe8)
    {
        const std::vector<std::uint8_t> packet = {0x80,
                                                  96,
                                                  static_cast<std::uint8_t>(sequence >> 8),
                                                  static_cast<std::uint8_t>(sequence),
                                                  0,
                                                  0,
                                                  3,
                                                  timestampEnd,
                                                  0x11,
                                                  0x22,
                                                  0x33,
                                                  ssrcEnd,
                                                  payload,
                                                  0};
        watch.onRtp(packet.data(), packet.size());
    }

    void receiveReport(std::uint8_t ssrcEnd = 0x44)
    {
        std::vector<std::uint8_t> report(28);
        report[0] = 0x80;
        report[1] = 200;
        report[3] = 6;
        report[4] = 0x11;
        report[5] = 0x22;
        report[6] = 0x33;
        report[7] = ssrcEnd;
        watch.onRtcp(report.data(), report.size());
    }

    TrackWatch watch;
};

TEST_F(TrackWatchTest, FindsNothingWrongWithAGoodTrackAcrossTheWrapOfTheSequence)
{
    receive(65534, keySlice);
    receive(65535);
    receive(0);
    receiveReport();
    EXPECT_EQ(watch.faults(true), "");
    EXPECT_EQ(watch.packets(), 3U);
    EXPECT_EQ(watch.lost(), 0U);
}

TEST_F(TrackWatchTest, FindsSilence)
{
    EXPECT_EQ(watch.faults(false), "no packet came");
}

TEST_F(TrackWatchTest, FindsAStartInTheMiddle)
{
    receive(65534, otherSlice);
    receive(65535, keySlice);
    EXPECT_THAT(watch.faults(false), HasSubstr("does not start on a key frame"));
}

TEST_F(TrackWatchTest, CountsLostPackets)
{
    receive(65534, keySlice);
    receive(2);
    EXPECT_EQ(watch.lost(), 3U);
    EXPECT_THAT(watch.faults(false), HasSubstr("3 packets lost"));
}

TEST_F(TrackWatchTest, FindsDisorderWhereThereMustBeOrder)
{
    receive(65534, keySlice);
    receive(0);
    receive(65535);
    EXPECT_EQ(watch.faults(false), "1 packets out of order");
}

TEST_F(TrackWatchTest, BearsDisorderOfDatagramsAndDoesNotTakeItForLoss)
{
    startWatch(false);
    receive(65534, keySlice);
    receive(0);
    receive(65535);
    EXPECT_EQ(watch.faults(false), "");
    EXPECT_EQ(watch.packets(), 3U);
    EXPECT_EQ(watch.lost(), 0U);
    EXPECT_EQ(watch.outOfOrder(), 1U);
}

TEST_F(TrackWatchTest, FindsAnotherSsrcAndJudgesNothingElseOfIt)
{
    receive(65534, keySlice);
    receive(7, keySlice, 0x45);
    EXPECT_EQ(watch.faults(false), "1 packets with another SSRC than SETUP said");
    EXPECT_EQ(watch.packets(), 1U);
}

TEST_F(TrackWatchTest, FindsRtpInfoThatNamesAnotherPacket)
{
    receive(65535, keySlice, 0x44, 0xe9);
    EXPECT_THAT(watch.faults(false), HasSubstr("first sequence number 65535, RTP-Info said 65534"));
    EXPECT_THAT(watch.faults(false), HasSubstr("first timestamp 1001, RTP-Info said 1000"));
}

TEST_F(TrackWatchTest, MissesASenderReportOnlyWhenOneIsDue)
{
    receive(65534, keySlice);
    EXPECT_EQ(watch.faults(false), "");
    EXPECT_THAT(watch.faults(true), HasSubstr("no sender report"));
}

TEST_F(TrackWatchTest, FindsBadRtcp)
{
    receive(65534, keySlice);
    receiveReport(0x45);
    const std::vector<std::uint8_t> cut = {0x80, 200, 0, 6, 0, 0};
    watch.onRtcp(cut.data(), cut.size());
    EXPECT_THAT(watch.faults(false), HasSubstr("2 bad RTCP packets"));
}

}  // namespace
}  // namespace rtspload
