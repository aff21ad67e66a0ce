#include "refhost/playback/PlayTimeline.h"

#include <gtest/gtest.h>

#include "refhost/playback/PlaybackPacer.h"

namespace refhost
{
namespace
{

using namespace std::chrono_literals;

constexpr WallTime media(Duration since1970)
{
    return WallTime(since1970);
}

constexpr PlayTime play(Duration since)
{
    return PlayTime(since);
}

constexpr MonotonicTime clock(Duration since)
{
    return MonotonicTime(since);
}

TEST(PlayTimeline, StartsAtZero)
{
    PlayTimeline timeline;
    timeline.jump(media(480'000h), 1);
    EXPECT_EQ(timeline.at(media(480'000h)), play(0s));
    EXPECT_EQ(timeline.at(media(480'000h + 1s)), play(1s));
}

TEST(PlayTimeline, ContinuesAfterTheLastSentUnitOnAJump)
{
    PlayTimeline timeline;
    timeline.jump(media(100s), 1);
    timeline.sentUntil(media(103s));
    timeline.sentUntil(media(102s));
    timeline.jump(media(5000s), 1);
    EXPECT_EQ(timeline.at(media(5000s)), play(3s));
    EXPECT_EQ(timeline.at(media(4999s)), play(3s)) << "never back";
}

TEST(PlayTimeline, ScaleAppliesFromTheGivenInstant)
{
    PlayTimeline timeline;
    timeline.jump(media(0s), 1);
    timeline.rescale(media(2s), 4);
    EXPECT_EQ(timeline.at(media(2s)), play(2s));
    EXPECT_EQ(timeline.at(media(6s)), play(3s));
    timeline.rescale(media(6s), 0.5);
    EXPECT_EQ(timeline.at(media(7s)), play(5s));
}

TEST(PlaybackPacer, ReturnsWhenAnInstantIsDue)
{
    PlaybackPacer pacer;
    pacer.start(clock(50s), play(7s));
    EXPECT_EQ(pacer.due(play(7s)), clock(50s));
    EXPECT_EQ(pacer.due(play(9s)), clock(52s));
    EXPECT_EQ(pacer.due(play(7s + 1ns)), clock(50s + 1ms)) << "never too early";
    EXPECT_EQ(pacer.at(clock(51s)), play(8s));
}

TEST(PlaybackPacer, SpeedAppliesFromNowOn)
{
    PlaybackPacer pacer;
    pacer.start(clock(0s), play(0s));
    pacer.setSpeed(2, clock(1s));
    EXPECT_EQ(pacer.at(clock(1s)), play(1s));
    EXPECT_EQ(pacer.at(clock(2s)), play(3s));
    EXPECT_EQ(pacer.due(play(3s)), clock(2s));
}

TEST(PlaybackPacer, StandsStillBetweenStopAndStart)
{
    PlaybackPacer pacer;
    pacer.timeline().jump(media(0s), 1);
    pacer.start(clock(0s), play(0s));
    pacer.timeline().sentUntil(media(3s));
    pacer.stop();
    EXPECT_FALSE(pacer.running());
    EXPECT_EQ(pacer.at(clock(100s)), play(3s));
}

}  // namespace
}  // namespace refhost
