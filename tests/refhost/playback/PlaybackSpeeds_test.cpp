#include <gtest/gtest.h>

#include "tests/refhost/playback/PlaybackFakes.h"

namespace refhost
{
namespace test
{
namespace
{

class PlaybackSpeeds : public PlaybackFixture
{
protected:
    void setUpBoth(double scale, double speed)
    {
        frames = setUp(video);
        audioWire = setUp(audio);
        ASSERT_EQ(session->setSpeed(video, scale, speed), 0);
        ASSERT_EQ(session->setSpeed(audio, scale, speed), 0);
        ASSERT_EQ(play(video), 0);
        ASSERT_EQ(play(audio), 0);
        runWorkers();
    }

    static std::uint32_t step(Wire& wire, std::size_t unit)
    {
        const std::lock_guard<std::mutex> guard(wire.mutex);
        std::vector<std::uint32_t> stamps;
        for (const SentPacket& packet : wire.packets)
        {
            if (packet.index == 0)
            {
                stamps.push_back(packet.timestamp);
            }
        }
        return stamps.at(unit) - stamps.at(unit - 1);
    }

    std::shared_ptr<Wire> frames;
    std::shared_ptr<Wire> audioWire;
};

TEST_F(PlaybackSpeeds, ScaleTwoTakesHalfTheTimeAndHalvesTheTimestamps)
{
    setUpBoth(2, 1);
    pass(5000);
    EXPECT_NEAR(secondsOf(*frames).back(), 10, 0.05);
    EXPECT_EQ(step(*frames, 5), 1800U);
    pass(5010);
    EXPECT_TRUE(session->ended());
}

TEST_F(PlaybackSpeeds, ClockThatWasSetBackDoesNotHoldUpAChangeOfSpeed)
{
    for (const std::int64_t byMs : {-3'600'000, 7'200'000})
    {
        make(0, 20);
        setUpBoth(1, 1);
        pass(1000);
        clock.setWall(std::chrono::milliseconds(byMs));
        EXPECT_EQ(session->setSpeed(video, 1, 2), 0);
        pass(1000);
        EXPECT_NEAR(secondsOf(*frames).back(), 3, 0.05) << byMs;
    }
}

TEST_F(PlaybackSpeeds, AudioAtScaleTwoLeavesOutEveryOtherBlock)
{
    setUpBoth(2, 1);
    pass(1000);
    EXPECT_NEAR(static_cast<double>(audioWire->units().size()), 50, 2);
    for (std::size_t i = 1; i < audioWire->units().size(); ++i)
    {
        ASSERT_EQ(step(*audioWire, i), 160U) << i;
    }
}

TEST_F(PlaybackSpeeds, ThereIsNoAudioAboveTwoAndBelowOne)
{
    setUpBoth(3, 1);
    pass(1000);
    EXPECT_TRUE(audioWire->units().empty());
    EXPECT_EQ(session->setSpeed(video, 0.5, 1), 0);
    pass(1000);
    EXPECT_TRUE(audioWire->units().empty());
    EXPECT_EQ(session->setSpeed(video, 1, 1), 0);
    pass(1000);
    EXPECT_GT(audioWire->units().size(), 40U);
}

TEST_F(PlaybackSpeeds, SlowMotionStretchesTheTimestamps)
{
    setUpBoth(0.25, 1);
    pass(4000);
    EXPECT_NEAR(secondsOf(*frames).back(), 1, 0.05);
    EXPECT_EQ(step(*frames, 5), 14'400U);
}

TEST_F(PlaybackSpeeds, SpeedChangesDeliveryAndNotTheTimestamps)
{
    setUpBoth(1, 4);
    pass(2000);
    EXPECT_NEAR(secondsOf(*frames).back(), 8, 0.05);
    EXPECT_EQ(step(*frames, 5), 3600U);
    EXPECT_NEAR(secondsOf(*audioWire).back(), 8, 0.05);
}

TEST_F(PlaybackSpeeds, OnlyKeyFramesAboveFour)
{
    setUpBoth(8, 1);
    pass(1500);
    EXPECT_EQ(frames->units().size(), 13U);
    for (const AccessUnitPtr& unit : frames->units())
    {
        EXPECT_TRUE(unit->keyFrame);
    }
    EXPECT_EQ(step(*frames, 3), 11'250U);
    EXPECT_TRUE(audioWire->units().empty());
    pass(1010);
    EXPECT_TRUE(session->ended());
}

TEST_F(PlaybackSpeeds, SpeedChangeWhilePlayingContinuesFromThere)
{
    setUpBoth(1, 1);
    pass(1000);
    ASSERT_EQ(session->setSpeed(video, 2, 1), 0);
    const auto before = frames->units().size();
    pass(1000);
    EXPECT_NEAR(secondsOf(*frames).back(), 3, 0.1);
    EXPECT_GE(step(*frames, before), 1800U);
    EXPECT_LE(step(*frames, before), 3600U);
    EXPECT_EQ(step(*frames, before + 1), 1800U);
    EXPECT_TRUE(frames->contiguous());
}

TEST_F(PlaybackSpeeds, ChangeToKeyFramesContinuesByItself)
{
    setUpBoth(1, 1);
    pass(2500);
    ASSERT_EQ(session->setSpeed(video, 16, 1), 0);
    const auto before = frames->units().size();
    pass(1000);
    ASSERT_GT(frames->units().size(), before + 10);
    EXPECT_TRUE(frames->units()[before]->keyFrame);
    EXPECT_TRUE(frames->contiguous());
    for (std::size_t i = 1; i < frames->units().size(); ++i)
    {
        ASSERT_GT(static_cast<std::int32_t>(step(*frames, i)), 0);
    }
}

TEST_F(PlaybackSpeeds, WithoutRateControlItGoesAsFastAsTheTransportTakesIt)
{
    const auto wire = setUp(video);
    ASSERT_EQ(playFrom(video, 0, 20, playRangeReplay | playRangeUnpaced), 0);
    wire->capacity = 300;
    runWorkers();
    EXPECT_EQ(wire->packets.size(), 300U);
    wire->capacity = SIZE_MAX;
    wire->ready();
    runWorkers();
    EXPECT_EQ(wire->units().size(), 500U);
    EXPECT_TRUE(session->ended());
    EXPECT_TRUE(sentBye(*wire));
}

TEST_F(PlaybackSpeeds, TrackWithNothingToSendAlsoSendsByeAtTheEnd)
{
    setUpBoth(4, 1);
    pass(6000);
    ASSERT_TRUE(session->ended());
    EXPECT_TRUE(audioWire->packets.empty());
    EXPECT_TRUE(sentBye(*frames));
    EXPECT_TRUE(sentBye(*audioWire));
}

}  // namespace
}  // namespace test
}  // namespace refhost
