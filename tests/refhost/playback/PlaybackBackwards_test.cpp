#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/refhost/playback/PlaybackFakes.h"

namespace refhost
{
namespace test
{
namespace
{

using testing::ElementsAre;

class PlaybackBackwards : public PlaybackFixture
{
protected:
    static std::vector<std::int32_t> ticks(Wire& wire)
    {
        const std::lock_guard<std::mutex> guard(wire.mutex);
        std::vector<std::int32_t> found;
        for (const SentPacket& packet : wire.packets)
        {
            if (packet.index == 0)
            {
                found.push_back(static_cast<std::int32_t>(packet.timestamp - wire.packets.front().timestamp));
            }
        }
        return found;
    }
};

TEST_F(PlaybackBackwards, KeyFramesAreSentInReverseAtTheirPace)
{
    const auto wire = setUp(video);
    ASSERT_EQ(session->setSpeed(video, -1, 1), 0);
    ASSERT_EQ(playFrom(video, 10.5, 7), 0);
    double begin = 0;
    double end = 0;
    RTPPacketInfo first;
    ASSERT_EQ(session->range(video, begin, end), 0);
    ASSERT_EQ(session->firstPacket(video, first), 0);
    EXPECT_EQ(begin, 10);
    EXPECT_EQ(end, 7);
    pass(1500);
    EXPECT_THAT(secondsOf(*wire), ElementsAre(10, 9));
    EXPECT_EQ(first.rtpTimestamp, wire->packets.front().timestamp);
    pass(2000);
    EXPECT_THAT(secondsOf(*wire), ElementsAre(10, 9, 8, 7));
    EXPECT_THAT(ticks(*wire), ElementsAre(0, 90000, 180000, 270000)) << "when each is displayed";
    EXPECT_FALSE(sentBye(*wire));
    pass(1000);
    EXPECT_TRUE(sentBye(*wire));
}

TEST_F(PlaybackBackwards, ScaleSetsTheRate)
{
    const auto wire = setUp(video);
    ASSERT_EQ(session->setSpeed(video, -4, 1), 0);
    ASSERT_EQ(playFrom(video, 10, 0), 0);
    pass(1100);
    EXPECT_THAT(secondsOf(*wire), ElementsAre(10, 9, 8, 7, 6));
    EXPECT_THAT(ticks(*wire), ElementsAre(0, 22500, 45000, 67500, 90000));
}

TEST_F(PlaybackBackwards, WithoutARangeItPlaysFromTheEndToTheFirstFrame)
{
    make(2.4, 6, 2);
    const auto wire = setUp(video);
    ASSERT_EQ(session->setSpeed(video, -1, 1), 0);
    ASSERT_EQ(play(video), 0);
    pass(10'000);
    EXPECT_THAT(secondsOf(*wire), ElementsAre(6, 5, 4, 3, 2));
}

TEST_F(PlaybackBackwards, WithoutRateControlTimestampsAreThoseOfTheRecording)
{
    const auto wire = setUp(video);
    ASSERT_EQ(session->setSpeed(video, -1, 1), 0);
    ASSERT_EQ(playFrom(video, 10, 7, playRangeReplay | playRangeUnpaced), 0);
    pass(10);
    EXPECT_EQ(wire->units().size(), 4U);
    EXPECT_THAT(ticks(*wire), ElementsAre(0, -90000, -180000, -270000));
    EXPECT_TRUE(wire->contiguous()) << "sequence numbers go on in the order of sending";
}

TEST_F(PlaybackBackwards, ReplayExtensionHasTheTrueTimeAndADiscontinuityAtEachFrame)
{
    recordings->set({{at(0), at(3)}, {at(8), at(20)}});
    const auto wire = setUp(video);
    ASSERT_EQ(session->setSpeed(video, -1, 1), 0);
    ASSERT_EQ(playFrom(video, 9, 1, playRangeReplay | playRangeUnpaced), 0);
    pass(10);
    std::vector<std::uint32_t> seconds;
    std::vector<int> flags;
    for (const AccessUnitPtr& unit : wire->units())
    {
        const std::uint8_t* const extension = unit->bytes.data() + unit->packets[0].offset + 12;
        seconds.push_back(extension[4] * 0x1000000U + extension[5] * 0x10000U + extension[6] * 0x100U +
                          extension[7] - 2'208'988'800U - 1'600'000'000U);
        flags.push_back(extension[12]);
    }
    EXPECT_THAT(seconds, ElementsAre(9, 8, 2, 1));
    constexpr int key = 0x80;
    constexpr int end = 0x40;
    constexpr int discontinuity = 0x20;
    EXPECT_THAT(flags, ElementsAre(key | discontinuity, key | discontinuity | end, key | discontinuity,
                                   key | discontinuity | end));
}

TEST_F(PlaybackBackwards, DirectionChangesAtThePresentPosition)
{
    const auto wire = setUp(video);
    ASSERT_EQ(playFrom(video, 5, 20), 0);
    pass(2500);
    ASSERT_EQ(session->setSpeed(video, -1, 1), 0);
    const auto before = wire->units().size();
    pass(2500);
    const auto turned = secondsOf(*wire);
    EXPECT_THAT(std::vector<double>(turned.begin() + static_cast<std::ptrdiff_t>(before), turned.end()),
                ElementsAre(7, 6, 5));
    ASSERT_EQ(session->setSpeed(video, 1, 1), 0);
    const auto last = wire->units().size();
    pass(100);
    EXPECT_EQ(secondsOf(*wire)[last], 4) << "the frame that would have come next";
    pass(20'000);
    EXPECT_TRUE(sentBye(*wire)) << "at the end of the interval";
}

TEST_F(PlaybackBackwards, PausedReversePlayResumes)
{
    const auto wire = setUp(video);
    ASSERT_EQ(session->setSpeed(video, -1, 1), 0);
    ASSERT_EQ(playFrom(video, 10, 0), 0);
    pass(1100);
    ASSERT_EQ(session->pause(video), 0);
    pass(5000);
    ASSERT_EQ(play(video), 0);
    pass(1100);
    EXPECT_THAT(secondsOf(*wire), ElementsAre(10, 9, 8, 7));
    ASSERT_EQ(session->setPausePosition(video, 5.5), 0);
    pass(10'000);
    EXPECT_THAT(secondsOf(*wire), ElementsAre(10, 9, 8, 7, 6));
}

TEST_F(PlaybackBackwards, RangeInTheOtherDirectionIsInvalid)
{
    setUp(video);
    ASSERT_EQ(session->setSpeed(video, -1, 1), 0);
    EXPECT_EQ(session->setRange(video, 3, 10, 0, true), hostRangeInvalid);
}

}  // namespace
}  // namespace test
}  // namespace refhost
