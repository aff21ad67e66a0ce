#include "refhost/capture/LoopTimeline.h"

#include <gtest/gtest.h>

namespace refhost
{
namespace
{

constexpr Duration ms = std::chrono::milliseconds(1);

LoopTimeline::Unit unit(std::int64_t presentation, std::int64_t decoding, std::int64_t duration)
{
    return {presentation * ms, decoding * ms, duration * ms};
}

LoopTimeline::Unit presentedOnly(std::int64_t presentation, std::int64_t duration)
{
    return {presentation * ms, std::nullopt, duration * ms};
}

TEST(LoopTimeline, FirstUnitIsPlacedAtThePresent)
{
    LoopTimeline timeline;
    const std::size_t track = timeline.addTrack();
    const auto first = timeline.place(track, unit(700, 700, 40), 123 * ms);
    ASSERT_TRUE(first);
    EXPECT_EQ(first->presentation, 123 * ms);
    EXPECT_EQ(first->due, 123 * ms);
    EXPECT_EQ(timeline.place(track, unit(740, 740, 40), 999 * ms)->due, 163 * ms);
}

TEST(LoopTimeline, NextIterationFollowsTheLastUnitWithoutAGap)
{
    LoopTimeline timeline;
    const std::size_t track = timeline.addTrack();
    timeline.place(track, unit(0, 0, 40), Duration::zero());
    timeline.place(track, unit(40, 40, 40), Duration::zero());
    EXPECT_TRUE(timeline.endTrack(track));
    EXPECT_EQ(timeline.place(track, unit(0, 0, 40), Duration::zero())->presentation, 80 * ms);
    EXPECT_EQ(timeline.place(track, unit(40, 40, 40), Duration::zero())->presentation, 120 * ms);
    EXPECT_TRUE(timeline.endTrack(track));
    EXPECT_EQ(timeline.place(track, unit(0, 0, 40), Duration::zero())->presentation, 160 * ms);
}

TEST(LoopTimeline, TracksOfAnIterationStartTogetherAfterTheLongest)
{
    LoopTimeline timeline;
    const std::size_t video = timeline.addTrack();
    const std::size_t audio = timeline.addTrack();
    timeline.place(video, unit(0, 0, 40), Duration::zero());
    timeline.place(audio, unit(0, 0, 100), Duration::zero());
    EXPECT_FALSE(timeline.endTrack(video));
    EXPECT_TRUE(timeline.endTrack(audio));
    EXPECT_EQ(timeline.place(video, unit(0, 0, 40), Duration::zero())->presentation, 100 * ms);
    EXPECT_EQ(timeline.place(audio, unit(0, 0, 100), Duration::zero())->presentation, 100 * ms);
}

TEST(LoopTimeline, UnitsAreDueInDecodingOrder)
{
    LoopTimeline timeline;
    const std::size_t track = timeline.addTrack();
    EXPECT_EQ(timeline.place(track, unit(0, -40, 40), 100 * ms)->due, 100 * ms);
    const auto second = timeline.place(track, unit(80, 0, 40), Duration::zero());
    EXPECT_EQ(second->due, 140 * ms);
    EXPECT_EQ(second->presentation, 220 * ms);
    EXPECT_EQ(timeline.place(track, unit(40, 40, 40), Duration::zero())->due, 180 * ms);
    EXPECT_TRUE(timeline.endTrack(track));
    EXPECT_EQ(timeline.place(track, unit(0, -40, 40), Duration::zero())->due, 220 * ms);
}

TEST(LoopTimeline, ReorderedFramesWithoutDecodingTimesAreDueEvenly)
{
    LoopTimeline timeline;
    const std::size_t track = timeline.addTrack();
    Duration expected{};
    for (const std::int64_t presentation : {0, 120, 80, 40, 240, 200, 160})
    {
        const auto placed = timeline.place(track, presentedOnly(presentation, 40), Duration::zero());
        EXPECT_EQ(placed->due, expected);
        EXPECT_EQ(placed->presentation, presentation * ms);
        expected += 40 * ms;
    }
}

TEST(LoopTimeline, AGapInTheFileIsKept)
{
    LoopTimeline timeline;
    const std::size_t track = timeline.addTrack();
    timeline.place(track, presentedOnly(0, 40), Duration::zero());
    EXPECT_EQ(timeline.place(track, presentedOnly(5000, 40), Duration::zero())->due, 5000 * ms);
}

TEST(LoopTimeline, FirstUnitWithoutTimesIsRefusedAndALaterOneIsPlaced)
{
    LoopTimeline timeline;
    const std::size_t track = timeline.addTrack();
    EXPECT_FALSE(timeline.place(track, {}, Duration::zero()));
    timeline.place(track, unit(0, 0, 40), Duration::zero());
    EXPECT_EQ(timeline.place(track, {}, Duration::zero())->due, 40 * ms);
}

TEST(LoopTimeline, FileOfZeroLengthDoesNotSpin)
{
    LoopTimeline timeline;
    const std::size_t track = timeline.addTrack();
    timeline.place(track, unit(0, 0, 0), Duration::zero());
    timeline.endTrack(track);
    EXPECT_GE(timeline.place(track, unit(0, 0, 0), Duration::zero())->due, 40 * ms);
}

}  // namespace
}  // namespace refhost
