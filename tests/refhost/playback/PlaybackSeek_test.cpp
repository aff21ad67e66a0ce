#include <gtest/gtest.h>

#include <limits>

#include "tests/refhost/playback/PlaybackFakes.h"

namespace refhost
{
namespace test
{
namespace
{

class PlaybackSeek : public PlaybackFixture
{
protected:
    /// Timestamps of a track's units, from the first one on.
    static std::vector<std::uint32_t> ticks(Wire& wire)
    {
        const std::lock_guard<std::mutex> guard(wire.mutex);
        std::vector<std::uint32_t> found;
        for (const SentPacket& packet : wire.packets)
        {
            if (packet.index == 0)
            {
                found.push_back(packet.timestamp - wire.packets.front().timestamp);
            }
        }
        return found;
    }
};

TEST_F(PlaybackSeek, TimestampsGoOnOverASeek)
{
    const auto wire = setUp(video);
    ASSERT_EQ(play(video), 0);
    pass(1000);
    ASSERT_EQ(playFrom(video, 12.3), 0);
    RTPPacketInfo first;
    ASSERT_EQ(session->firstPacket(video, first), 0);
    const auto before = wire->units().size();
    pass(200);
    const auto stamps = ticks(*wire);
    EXPECT_DOUBLE_EQ(secondsOf(*wire)[before], 12);
    EXPECT_EQ(stamps[before] - stamps[before - 1], 3600U);
    EXPECT_EQ(first.sequenceNumber, wire->packets[before * 3].sequence);
    EXPECT_EQ(first.rtpTimestamp, wire->packets[before * 3].timestamp);
    EXPECT_TRUE(wire->contiguous());
}

TEST_F(PlaybackSeek, AnIntervalInsideAGopPlaysFromPositionZero)
{
    make(5.4, 10, 5);
    const auto wire = setUp(video);
    ASSERT_EQ(play(video), 0);
    EXPECT_EQ(recordings->requests.back().from, at(5.4)) << "what the interval asks for";
    double begin = -1;
    double end = -1;
    RTPPacketInfo first;
    ASSERT_EQ(session->range(video, begin, end), 0);
    ASSERT_EQ(session->firstPacket(video, first), 0);
    EXPECT_EQ(begin, 0);
    EXPECT_EQ(end, 5);
    pass(100);
    EXPECT_EQ(secondsOf(*wire).front(), 5);
    EXPECT_EQ(first.rtpTimestamp, wire->packets.front().timestamp) << "no frame before position 0";
}

TEST_F(PlaybackSeek, PositionsUpToTheIntervalsBeginAreItsFirstFrame)
{
    make(5.4, 10, 5);
    const auto wire = setUp(video);
    for (const double position : {0.0, 0.2, 0.4})
    {
        ASSERT_EQ(playFrom(video, position, 5), 0);
        EXPECT_EQ(recordings->requests.back().from, at(5.4)) << position;
        EXPECT_EQ(recordings->requests.back().end, at(10));
        const auto before = wire->units().size();
        pass(100);
        EXPECT_EQ(secondsOf(*wire)[before], 5) << position;
    }
}

TEST_F(PlaybackSeek, ARangeMayEndBeforeTheIntervalsBegin)
{
    make(5.4, 10, 5);
    const auto wire = setUp(video);
    ASSERT_EQ(playFrom(video, 0.1, 0.2), 0);
    pass(1000);
    EXPECT_EQ(secondsOf(*wire).size(), 5U) << "0.2 s of frames";
    EXPECT_TRUE(sentBye(*wire));
}

TEST_F(PlaybackSeek, PositionsCountFromTheFirstFrameWhereRecordedMediaStartsLater)
{
    recordings->set({{at(7), at(20)}});
    make(5.4, 10, 7);
    const auto wire = setUp(video);
    ASSERT_EQ(playFrom(video, 1, 3), 0);
    pass(100);
    EXPECT_EQ(secondsOf(*wire).front(), 8);
    double begin = -1;
    double end = -1;
    ASSERT_EQ(session->range(video, begin, end), 0);
    EXPECT_EQ(begin, 1);
    EXPECT_EQ(end, 3);
}

TEST_F(PlaybackSeek, OnlyKeyFramesAreReadAtTheRequestedDistance)
{
    setUp(video);
    setUp(audio);
    ASSERT_EQ(playFrom(video, 2, 20, playRangeKeyFrames | 400 << playRangeDistanceShift), 0);
    const PlaybackSource::Request seek = recordings->requests.back();
    EXPECT_TRUE(seek.keyFramesOnly);
    EXPECT_EQ(seek.keyDistance, 4 * second);
    EXPECT_EQ(seek.audio.payloadSize, 0);
    ASSERT_EQ(session->setRange(video, 0, 0, playRangeKeyFrames, false), 0);
    ASSERT_EQ(play(video), 0);
    EXPECT_EQ(recordings->requests.back().keyDistance, Duration::zero())
        << "a change of the distance alone is one too";
    ASSERT_EQ(session->setRange(video, 0, 0, 400 << playRangeDistanceShift, false), 0);
    ASSERT_EQ(play(video), 0);
    EXPECT_FALSE(recordings->requests.back().keyFramesOnly);
    EXPECT_EQ(recordings->requests.back().keyDistance, Duration::zero());
}

TEST_F(PlaybackSeek, PlayContinuesUntilTheNewPlaceIsFound)
{
    const auto wire = setUp(video);
    ASSERT_EQ(play(video), 0);
    pass(500);
    ASSERT_EQ(session->setRange(video, 15, 20, 0, true), 0);
    pass(500);
    EXPECT_LE(secondsOf(*wire).back(), 1.0);
    EXPECT_EQ(session->range(video, *std::make_unique<double>(), *std::make_unique<double>()), 0);
}

TEST_F(PlaybackSeek, NothingOfTheNewPlaceIsSentBeforePlay)
{
    const auto wire = setUp(video);
    ASSERT_EQ(play(video), 0);
    pass(500);
    ASSERT_EQ(session->setRange(video, 15, 20, 0, true), 0);
    ASSERT_EQ(session->play(video), hostStreamNotReady);
    pass(500);
    EXPECT_LE(secondsOf(*wire).back(), 1.0);
    ASSERT_EQ(session->play(video), 0);
    pass(0);
    EXPECT_DOUBLE_EQ(secondsOf(*wire).back(), 15);
}

TEST_F(PlaybackSeek, SeekToWhereNothingIsRecordedIsRefusedAndPlayContinues)
{
    recordings->set({{at(0), at(8)}});
    const auto wire = setUp(video);
    ASSERT_EQ(play(video), 0);
    pass(500);
    EXPECT_EQ(playFrom(video, 12), hostRangeInvalid);
    pass(500);
    EXPECT_NEAR(secondsOf(*wire).back(), 1, 0.05);
    EXPECT_EQ(play(video), 0);
}

TEST_F(PlaybackSeek, AnEmptyRangeIsRefused)
{
    setUp(video);
    EXPECT_EQ(session->setRange(video, 5, 5, 0, true), hostRangeInvalid);
    EXPECT_EQ(session->setRange(video, 5, 3, 0, true), hostRangeInvalid);
    EXPECT_EQ(session->setRange(video, 20, 20, 0, true), hostRangeInvalid);
}

TEST_F(PlaybackSeek, RangesAreKeptInsideTheInterval)
{
    const auto wire = setUp(video);
    const double infinite = std::numeric_limits<double>::infinity();
    ASSERT_EQ(session->setRange(video, -infinite, infinite, 0, true), 0);
    ASSERT_EQ(play(video), 0);
    double begin = -1;
    double end = -1;
    ASSERT_EQ(session->range(video, begin, end), 0);
    EXPECT_DOUBLE_EQ(begin, 0);
    EXPECT_DOUBLE_EQ(end, 20);
    EXPECT_EQ(session->setRange(video, std::numeric_limits<double>::quiet_NaN(), 1, 0, true), 0);
}

TEST_F(PlaybackSeek, LastOfTwoRangesApplies)
{
    const auto wire = setUp(video);
    ASSERT_EQ(session->setRange(video, 4, 20, 0, true), 0);
    ASSERT_EQ(session->setRange(video, 9, 20, 0, true), 0);
    ASSERT_EQ(play(video), 0);
    pass(0);
    EXPECT_EQ(secondsOf(*wire), std::vector<double>{9});
    EXPECT_EQ(recordings->opens, 1);
}

TEST_F(PlaybackSeek, AGapTakesNoTime)
{
    recordings->set({{at(0), at(2)}, {at(7200), at(7202)}});
    make(0, 10'000);
    const auto frames = setUp(video);
    const auto audioWire = setUp(audio);
    ASSERT_EQ(play(video), 0);
    ASSERT_EQ(play(audio), 0);
    pass(3950);
    const auto seconds = secondsOf(*frames);
    ASSERT_EQ(seconds.size(), 99U);
    EXPECT_DOUBLE_EQ(seconds[50], 7200);
    const auto stamps = ticks(*frames);
    for (std::size_t i = 1; i < stamps.size(); ++i)
    {
        ASSERT_EQ(stamps[i] - stamps[i - 1], 3600U) << i;
    }
    const auto blocks = ticks(*audioWire);
    for (std::size_t i = 1; i < blocks.size(); ++i)
    {
        ASSERT_EQ(blocks[i] - blocks[i - 1], 160U) << i;
    }
    pass(100);
    EXPECT_TRUE(session->ended());
}

TEST_F(PlaybackSeek, RealStartIsReportedWhereTheRecordingStartsLater)
{
    recordings->set({{at(3.5), at(8)}});
    setUp(video);
    ASSERT_EQ(play(video), 0);
    double begin = 0;
    double end = 0;
    ASSERT_EQ(session->range(video, begin, end), 0);
    EXPECT_NEAR(begin, 3.5, 1e-6);
}

TEST_F(PlaybackSeek, AKeyFrameBeforeTheIntervalCountsFromItsBegin)
{
    make(5.4, 10);
    const auto wire = setUp(video);
    session->setRange(video, 0, 4.6, 0, true);
    recordings->set({{at(0.0), at(20)}});
    ASSERT_EQ(play(video), 0);
    double begin = -1;
    double end = -1;
    ASSERT_EQ(session->range(video, begin, end), 0);
    EXPECT_DOUBLE_EQ(begin, 0);
    RTPPacketInfo first;
    ASSERT_EQ(session->firstPacket(video, first), 0);
    pass(0);
    EXPECT_DOUBLE_EQ(secondsOf(*wire).front(), 5);
    EXPECT_EQ(first.sequenceNumber, wire->packets.front().sequence);
    EXPECT_EQ(first.rtpTimestamp - wire->packets.front().timestamp, 36'000U);
}

TEST_F(PlaybackSeek, RecordedMediaThatStillGrowsIsFollowed)
{
    recordings->set({{at(0), at(1)}});
    recordings->growing = true;
    const auto wire = setUp(video);
    ASSERT_EQ(play(video), 0);
    pass(3000);
    EXPECT_EQ(wire->units().size(), 25U);
    EXPECT_FALSE(session->ended());
    recordings->set({{at(0), at(3)}});
    pass(1500);
    EXPECT_GT(wire->units().size(), 50U);
    EXPECT_TRUE(wire->contiguous());
}

}  // namespace
}  // namespace test
}  // namespace refhost
