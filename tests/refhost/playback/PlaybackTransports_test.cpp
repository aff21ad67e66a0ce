#include <gtest/gtest.h>

#include "tests/refhost/base/Nanoseconds.h"
#include "tests/refhost/playback/PlaybackFakes.h"

namespace refhost
{
namespace test
{
namespace
{

class PlaybackTransports : public PlaybackFixture
{
protected:
    struct Report
    {
        WallTime ntp;
        std::uint32_t rtp;
        std::uint32_t packets;
        std::uint32_t octets;
    };

    static std::uint32_t word(const std::vector<std::uint8_t>& bytes, std::size_t at)
    {
        return std::uint32_t{bytes[at]} << 24U | std::uint32_t{bytes[at + 1]} << 16U |
               std::uint32_t{bytes[at + 2]} << 8U | bytes[at + 3];
    }

    static std::vector<Report> reports(Wire& wire)
    {
        const std::lock_guard<std::mutex> guard(wire.mutex);
        std::vector<Report> found;
        for (const auto& packet : wire.rtcp)
        {
            found.push_back({NtpTime(word(packet, 8), word(packet, 12)).wallTime(), word(packet, 16),
                             word(packet, 20), word(packet, 24)});
        }
        return found;
    }
};

TEST_F(PlaybackTransports, NothingLeavesThroughATransportThatIsHeld)
{
    const auto wire = setUp(video);
    transports.at(video)->hold();
    ASSERT_EQ(play(video), 0);
    pass(500);
    EXPECT_TRUE(wire->units().empty());
    transports.at(video)->release();
    runWorkers();
    EXPECT_EQ(wire->units().size(), 1U) << "the time of the hold is not made up for";
}

TEST_F(PlaybackTransports, ACongestedTransportLosesNothing)
{
    const auto wire = setUp(video);
    ASSERT_EQ(play(video), 0);
    pass(500);
    wire->capacity = 1;
    pass(1000);
    const auto before = wire->units().size();
    wire->capacity = SIZE_MAX;
    wire->ready();
    pass(0);
    EXPECT_GT(wire->units().size(), before + 20) << "a short stop is made up for";
    pass(500);
    const auto seconds = secondsOf(*wire);
    for (std::size_t i = 0; i < seconds.size(); ++i)
    {
        ASSERT_NEAR(seconds[i], 0.04 * static_cast<double>(i), 1e-6);
    }
    EXPECT_TRUE(wire->contiguous());
}

TEST_F(PlaybackTransports, AfterALongStallItContinuesAtItsPace)
{
    const auto wire = setUp(video);
    ASSERT_EQ(play(video), 0);
    pass(500);
    wire->capacity = 0;
    pass(10'000);
    const auto before = wire->units().size();
    wire->capacity = SIZE_MAX;
    wire->ready();
    pass(0);
    EXPECT_EQ(wire->units().size(), before + 1);
    pass(1000);
    EXPECT_NEAR(static_cast<double>(wire->units().size() - before), 26, 1);
}

TEST_F(PlaybackTransports, OverUdpAShortStallCausesNoBurst)
{
    const auto wire = setUp(video);
    wire->traits = Wire::datagrams();
    ASSERT_EQ(play(video), 0);
    pass(500);
    wire->capacity = 0;
    pass(1000);
    const auto before = wire->units().size();
    wire->capacity = SIZE_MAX;
    clock.advance(std::chrono::milliseconds(5));
    runWorkers();
    EXPECT_GT(wire->units().size(), before) << "it is tried again without a report of the transport";
    EXPECT_LE(wire->units().size(), before + 6) << "of the 25 that were due";
    pass(1000);
    EXPECT_NEAR(static_cast<double>(wire->units().size() - before), 28, 3);
}

TEST_F(PlaybackTransports, OverUdpByeFollowsTheLastPacketAfterADelay)
{
    const auto wire = setUp(video);
    wire->traits = Wire::datagrams();
    settings.byeDelay = std::chrono::milliseconds(100);
    ASSERT_EQ(playFrom(video, 17, 19), 0);
    pass(1960);
    EXPECT_DOUBLE_EQ(secondsOf(*wire).back(), 18.96);
    pass(95);
    EXPECT_FALSE(sentBye(*wire)) << "though the last frame has been displayed";
    pass(10);
    EXPECT_TRUE(sentBye(*wire));
    EXPECT_TRUE(session->ended());
}

TEST_F(PlaybackTransports, TransportThatMissesANotificationIsRetried)
{
    const auto wire = setUp(video);
    ASSERT_EQ(play(video), 0);
    pass(100);
    wire->capacity = 0;
    pass(100);
    wire->capacity = SIZE_MAX;
    const auto before = wire->units().size();
    pass(600);
    EXPECT_GT(wire->units().size(), before);
}

TEST_F(PlaybackTransports, ReadsAheadButNotWithoutBound)
{
    const auto wire = setUp(video);
    ASSERT_EQ(play(video), 0);
    wire->capacity = 0;
    pass(10'000);
    EXPECT_LT(recordings->reads, 50);
    settings.readAheadBytes = 20'000;
    make(0, 20);
    recordings->reads = 0;
    const auto narrow = setUp(video);
    ASSERT_EQ(play(video), 0);
    narrow->capacity = 0;
    pass(10'000);
    EXPECT_LT(recordings->reads, 12);
    narrow->capacity = SIZE_MAX;
    narrow->ready();
    pass(2000);
    EXPECT_GT(narrow->units().size(), 45U);
}

TEST_F(PlaybackTransports, TheFirstPacketComesWithASenderReport)
{
    const auto wire = setUp(video);
    ASSERT_EQ(play(video), 0);
    runWorkers();
    ASSERT_GE(wire->order.size(), 2U);
    EXPECT_EQ(wire->order[0], 'r');
    EXPECT_EQ(wire->order[1], 'p');
    const auto all = reports(*wire);
    EXPECT_EQ(all.front().rtp, wire->packets.front().timestamp);
    EXPECT_NEAR(static_cast<double>((all.front().ntp - clock.wallNow()).count()), 0, 1000);
    EXPECT_EQ(all.front().packets, 0U);
}

TEST_F(PlaybackTransports, ReportsMapTheWallClockToThePlayersTime)
{
    const auto wire = setUp(video);
    ASSERT_EQ(playFrom(video, 3), 0);
    pass(16'000);
    const auto all = reports(*wire);
    ASSERT_GE(all.size(), 3U);
    for (const Report& report : all)
    {
        const double passed = refhost::secondsOf(report.ntp - all.front().ntp);
        EXPECT_NEAR(static_cast<double>(report.rtp - all.front().rtp), passed * 90'000, 2);
    }
    EXPECT_GT(all.back().octets, 100'000U);
}

TEST_F(PlaybackTransports, AReportFollowsAPauseBecauseTheMappingMoved)
{
    const auto wire = setUp(video);
    ASSERT_EQ(play(video), 0);
    pass(1000);
    ASSERT_EQ(session->pause(video), 0);
    pass(60'000);
    const auto before = reports(*wire).size();
    const auto sent = wire->packets.size();
    ASSERT_EQ(play(video), 0);
    runWorkers();
    const auto all = reports(*wire);
    ASSERT_EQ(all.size(), before + 1);
    EXPECT_EQ(all.back().rtp, wire->packets[sent].timestamp);
}

TEST_F(PlaybackTransports, AReportFollowsAChangeOfSpeedBecauseTheMappingMoved)
{
    const auto wire = setUp(video);
    ASSERT_EQ(play(video), 0);
    pass(300);
    ASSERT_EQ(reports(*wire).size(), 1U);
    ASSERT_EQ(session->setSpeed(video, 1, 2), 0);
    pass(50);
    const auto all = reports(*wire);
    ASSERT_EQ(all.size(), 2U);
    const auto passed = refhost::secondsOf(all[1].ntp - all[0].ntp);
    const auto played = static_cast<double>(all[1].rtp - all[0].rtp) / 90'000;
    EXPECT_NEAR(played, 0.3 + 2 * (passed - 0.3), 0.001);
}

TEST_F(PlaybackTransports, ReportsOfTheClientAreCounted)
{
    const auto wire = setUp(video);
    ASSERT_EQ(play(video), 0);
    pass(100);
    const std::uint8_t rubbish[] = {1, 2, 3};
    wire->listener.lock()->onRtcp(rubbish, sizeof(rubbish));
    TrackStatistics statistics;
    ASSERT_EQ(session->statistics(video, statistics), 0);
    EXPECT_EQ(statistics.reportsRefused, 1U);
    EXPECT_EQ(statistics.packets, wire->packets.size());
}

TEST_F(PlaybackTransports, ReplayCarriesTheExtensionInTheFirstPacketOfAUnit)
{
    const auto wire = setUp(video);
    constexpr int sequence = 0x1f7;
    ASSERT_EQ(playFrom(video, 2, 4, playRangeReplay | (sequence & 0xff) << playRangeSequenceShift), 0);
    pass(2100);
    const auto units = wire->units();
    ASSERT_EQ(units.size(), 50U);
    for (std::size_t i = 0; i < units.size(); ++i)
    {
        const AccessUnit& unit = *units[i];
        const auto& first = unit.packets[0];
        const std::uint8_t* at = unit.bytes.data() + first.offset;
        ASSERT_EQ(at[0], 0x90);
        EXPECT_EQ(at[12] * 256 + at[13], 0xabac);
        EXPECT_EQ(at[14] * 256 + at[15], 3);
        const std::vector<std::uint8_t> bytes(at, at + 28);
        EXPECT_EQ(std::int64_t{word(bytes, 16)} - 2'208'988'800,
                  nsOf(unit.captureTime) / nanosecondsPerSecond);
        EXPECT_NEAR(word(bytes, 20) / 4294967296.0,
                    static_cast<double>(nsOf(unit.captureTime) % nanosecondsPerSecond) / 1e9, 1e-8);
        EXPECT_EQ(at[24], (i % 25 == 0 ? 0x80 : 0) | (i == 49 ? 0x40 : 0));
        EXPECT_EQ(at[25], 0xf7);
        EXPECT_EQ(first.size, AccessUnit::rtpHeaderSize + 16 + 1364);
        EXPECT_EQ(at[28], 1) << "the payload follows";
        for (std::size_t packet = 1; packet < unit.packets.size(); ++packet)
        {
            EXPECT_EQ(unit.bytes[unit.packets[packet].offset], 0x80);
            EXPECT_EQ(unit.bytes[unit.packets[packet].offset + 12], packet + 1);
        }
    }
}

TEST_F(PlaybackTransports, ExtensionMarksADiscontinuity)
{
    recordings->set({{at(0), at(1)}, {at(50), at(52)}});
    make(0, 60);
    const auto wire = setUp(video);
    ASSERT_EQ(playFrom(video, 0, 60, playRangeReplay), 0);
    pass(1500);
    const auto flags = [](const AccessUnitPtr& unit) { return unit->bytes[unit->packets[0].offset + 24]; };
    const auto units = wire->units();
    EXPECT_EQ(flags(units[0]), 0x80);
    EXPECT_EQ(flags(units[24]), 0x40);
    EXPECT_EQ(flags(units[25]), 0x80 | 0x20);
    EXPECT_EQ(flags(units[26]), 0);
    ASSERT_EQ(playFrom(video, 0, 60, playRangeReplay), 0);
    pass(0);
    EXPECT_EQ(flags(wire->units().back()), 0x80 | 0x20);
}

TEST_F(PlaybackTransports, ThePayloadIsCountedWithoutTheExtension)
{
    const auto wire = setUp(video);
    wire->capacity = 1;
    ASSERT_EQ(playFrom(video, 0, 20, playRangeReplay), 0);
    pass(0);
    TrackStatistics statistics;
    ASSERT_EQ(session->statistics(video, statistics), 0);
    EXPECT_EQ(statistics.packets, 1U);
    EXPECT_EQ(statistics.octets, 1364U);
}

TEST_F(PlaybackTransports, WithoutReplayNothingChangesOnTheWire)
{
    const auto wire = setUp(video);
    ASSERT_EQ(play(video), 0);
    pass(500);
    for (const AccessUnitPtr& unit : wire->units())
    {
        EXPECT_EQ(unit->bytes[unit->packets[0].offset], 0x80);
    }
}

TEST_F(PlaybackTransports, ASilentClientOverUdpCountsAsGone)
{
    settings.maxSilence = std::chrono::seconds(60);
    make(0, 20);
    const auto wire = setUp(video);
    bool connected = false;
    pass(61'000);
    ASSERT_EQ(session->connectionState(video, connected), 0);
    EXPECT_TRUE(connected) << "TCP notices by itself";
    wire->traits = Wire::datagrams();
    ASSERT_EQ(session->connectionState(video, connected), 0);
    EXPECT_FALSE(connected);
    const std::uint8_t rubbish[] = {1, 2, 3};
    session->play(video);
    ASSERT_EQ(session->connectionState(video, connected), 0);
    EXPECT_TRUE(connected);
    static_cast<void>(rubbish);
}

}  // namespace
}  // namespace test
}  // namespace refhost
