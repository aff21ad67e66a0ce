#include "refhost/playback/PlayTimeline.h"

#include <gtest/gtest.h>

#include "refhost/playback/PlaybackPacer.h"

namespace refhost
{
namespace
{

constexpr std::int64_t second = 1'000'000'000;
constexpr std::int64_t day = 86'400 * second;

TEST(PlayTimeline, StartsAtZero)
{
    PlayTimeline timeline;
    timeline.jump(20'000 * day, 1);
    EXPECT_EQ(timeline.at(20'000 * day), 0);
    EXPECT_EQ(timeline.at(20'000 * day + second), second);
}

TEST(PlayTimeline, GoesOnBehindWhatWasSentAfterAJump)
{
    PlayTimeline timeline;
    timeline.jump(100 * second, 1);
    timeline.sentUntil(103 * second);
    timeline.sentUntil(102 * second);
    timeline.jump(5000 * second, 1);
    EXPECT_EQ(timeline.at(5000 * second), 3 * second);
    EXPECT_EQ(timeline.at(4999 * second), 3 * second) << "never back";
}

TEST(PlayTimeline, ScaleAppliesFromThereOn)
{
    PlayTimeline timeline;
    timeline.jump(0, 1);
    timeline.rescale(2 * second, 4);
    EXPECT_EQ(timeline.at(2 * second), 2 * second);
    EXPECT_EQ(timeline.at(6 * second), 3 * second);
    timeline.rescale(6 * second, 0.5);
    EXPECT_EQ(timeline.at(7 * second), 5 * second);
}

TEST(PlayTimeline, TicksAreExactForDays)
{
    EXPECT_EQ(PlayTimeline::ticks(second, 90'000), 90'000U);
    EXPECT_EQ(PlayTimeline::ticks(40'000'000, 90'000), 3'600U);
    EXPECT_EQ(PlayTimeline::ticks(400 * day + second / 2, 90'000),
              static_cast<std::uint32_t>(400ULL * 86'400 * 90'000 + 45'000));
    EXPECT_EQ(PlayTimeline::ticks(second / 44'100, 44'100), 1U) << "rounded to the nearest";
}

TEST(PlaybackPacer, TellsWhenWhatIsDue)
{
    PlaybackPacer pacer;
    pacer.start(1000, 50 * second, 7 * second);
    EXPECT_EQ(pacer.dueMs(7 * second), 1000);
    EXPECT_EQ(pacer.dueMs(9 * second), 3000);
    EXPECT_EQ(pacer.dueMs(7 * second + 1), 1001) << "never too early";
    EXPECT_EQ(pacer.playNs(51 * second), 8 * second);
}

TEST(PlaybackPacer, SpeedAppliesFromNowOn)
{
    PlaybackPacer pacer;
    pacer.start(0, 0, 0);
    pacer.setSpeed(2, 1000, second);
    EXPECT_EQ(pacer.playNs(second), second);
    EXPECT_EQ(pacer.playNs(2 * second), 3 * second);
    EXPECT_EQ(pacer.dueMs(3 * second), 2000);
}

TEST(PlaybackPacer, StandsStillBetweenStopAndStart)
{
    PlaybackPacer pacer;
    pacer.timeline().jump(0, 1);
    pacer.start(0, 0, 0);
    pacer.timeline().sentUntil(3 * second);
    pacer.stop();
    EXPECT_FALSE(pacer.running());
    EXPECT_EQ(pacer.playNs(100 * second), 3 * second);
}

}  // namespace
}  // namespace refhost
