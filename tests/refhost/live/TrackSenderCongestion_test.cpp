#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "refhost/live/TrackSender.h"
#include "tests/refhost/base/Nanoseconds.h"
#include "tests/refhost/live/TrackSenderFixture.h"

namespace refhost
{
namespace test
{
namespace
{

TEST_F(TrackSenderTest, ACongestedUnitGoesOnWhereItStopped)
{
    const auto wire = setUp("s", video);
    wire->capacity = 4;
    play("s", video);
    tick();
    EXPECT_EQ(4U, wire->packets.size());
    wire->capacity = 2;
    wire->ready();
    EXPECT_EQ(6U, wire->packets.size());
    wire->capacity = SIZE_MAX;
    tick();
    EXPECT_EQ(12U, wire->packets.size());
    for (std::size_t i = 0; i < 9; ++i)
    {
        EXPECT_EQ(i, wire->packets[i].index);
        EXPECT_EQ(wire->packets[0].timestamp, wire->packets[i].timestamp);
    }
    EXPECT_TRUE(wire->contiguous());
    EXPECT_EQ(12U, statistics("s", video).packets);
    EXPECT_EQ(0U, statistics("s", video).unitsSkipped);
}

TEST_F(TrackSenderTest, AShortCongestionLosesNothing)
{
    const auto wire = setUp("s", video);
    play("s", video);
    ticks(20);
    wire->capacity = 0;
    ticks(10);
    EXPECT_EQ(20U, wire->units().size());
    wire->capacity = SIZE_MAX;
    wire->ready();
    EXPECT_EQ(30U, wire->units().size());
    EXPECT_EQ(0U, statistics("s", video).unitsSkipped);
}

TEST_F(TrackSenderTest, ALongCongestionLosesWholeUnitsUpToTheNewestKeyFrame)
{
    const auto wire = setUp("s", video);
    const auto other = setUp("t", video);
    play("s", video);
    play("t", video);
    ticks(10);
    wire->capacity = 1;  // splits the next unit
    ticks(60);
    const std::size_t torn = wire->packets.size();
    EXPECT_EQ(70U, other->units().size());
    wire->capacity = SIZE_MAX;
    wire->ready();
    // The split unit is completed, followed by the key frame of unit 50 and everything after it.
    EXPECT_TRUE(wire->packets[torn + 1].last);
    EXPECT_TRUE(wire->packets[torn + 2].unit->keyFrame);
    EXPECT_EQ(11U + 20U, wire->units().size());
    EXPECT_EQ(39U, statistics("s", video).unitsSkipped);
    EXPECT_TRUE(wire->contiguous());
    EXPECT_TRUE(ascending(*wire));
    EXPECT_EQ(40U * 3600U, wire->packets[torn + 2].timestamp - wire->packets[torn + 1].timestamp);
}

TEST_F(TrackSenderTest, SenderBehindTheRingWaitsForAKeyFrame)
{
    settings.ringUnits = 8;
    make();
    const auto wire = setUp("s", video);
    play("s", video);
    ticks(2);
    wire->capacity = 0;
    ticks(15);
    wire->capacity = SIZE_MAX;
    wire->ready();
    EXPECT_EQ(2U, wire->units().size());
    ticks(8);
    EXPECT_EQ(2U, wire->units().size());
    tick();
    ASSERT_EQ(3U, wire->units().size());
    EXPECT_TRUE(wire->units().back()->keyFrame);
    ticks(3);
    EXPECT_EQ(6U, wire->units().size());
    EXPECT_TRUE(wire->contiguous());
}

TEST_F(TrackSenderTest, LateAudioLosesWhatIsOlderThanASecond)
{
    const auto audioWire = setUp("s", audio);
    play("s", audio);
    ticks(5);
    audioWire->capacity = 0;
    ticks(20);
    audioWire->capacity = 5;
    audioWire->ready();
    EXPECT_EQ(15U, audioWire->units().size());  // 800 ms late: nothing is lost
    ticks(20);
    audioWire->capacity = SIZE_MAX;
    audioWire->ready();
    EXPECT_EQ(0, (nsOf(clock.now()) - nsOf(audioWire->units().back()->captureTime)));
    EXPECT_GE(nsOf(audioWire->units()[15]->captureTime), nsOf(clock.now()) - 1'000'000'000);
    EXPECT_GT(statistics("s", audio).unitsSkipped, 10U);
    EXPECT_TRUE(audioWire->contiguous());
}

TEST_F(TrackSenderTest, TheAnnouncedFirstUnitSurvivesACongestion)
{
    const auto wire = setUp("s", video);
    ticks(2);
    wire->capacity = 0;
    play("s", video);
    const RTPPacketInfo info = rtpInfo("s", video);
    ticks(100);
    wire->capacity = SIZE_MAX;
    wire->ready();
    expectFirst(info, wire->packets.front());
    EXPECT_TRUE(wire->packets.front().unit->keyFrame);
    EXPECT_TRUE(wire->packets[9].unit->keyFrame);
}

TEST_F(TrackSenderTest, AClosedTransportIsLeftAlone)
{
    const auto wire = setUp("s", video);
    play("s", video);
    ticks(2);
    transport("s", video)->close();
    ticks(30);
    EXPECT_EQ(2U, wire->units().size());
    EXPECT_EQ(1, source->viewers.load());
    EXPECT_EQ(0, remove("s", video));
    EXPECT_EQ(0, source->viewers.load());
}

TEST_F(TrackSenderTest, APauseInTheMiddleOfAUnitDropsItsRest)
{
    const auto wire = setUp("s", video);
    play("s", video);
    ticks(10);
    wire->capacity = 1;
    tick();
    const std::size_t torn = wire->packets.size();
    pause("s", video);
    wire->capacity = SIZE_MAX;
    wire->ready();
    EXPECT_EQ(torn, wire->packets.size());
    ticks(20);
    play("s", video);
    EXPECT_TRUE(wire->packets[torn].unit->keyFrame);
    EXPECT_TRUE(wire->contiguous());
}

TEST_F(TrackSenderTest, AKeyFrameTornByAPauseIsNotSentAgain)
{
    const auto wire = setUp("s", video);
    wire->capacity = 4;
    play("s", video);
    tick();
    EXPECT_EQ(4U, wire->packets.size());
    pause("s", video);
    wire->capacity = SIZE_MAX;
    play("s", video);
    EXPECT_EQ(4U, wire->packets.size());
    EXPECT_EQ(2, source->keyRequests.load());
    frame = gop;
    tick();
    EXPECT_TRUE(wire->packets[4].unit->keyFrame);
    EXPECT_TRUE(wire->contiguous());
}

}  // namespace
}  // namespace test
}  // namespace refhost
