#include "refhost/capture/LoopTimeline.h"

#include <gtest/gtest.h>

namespace refhost
{
namespace
{

constexpr Duration ms = std::chrono::milliseconds(1);

LoopTimeline::Piece piece(std::int64_t presentation, std::int64_t decoding, std::int64_t duration)
{
    return {presentation * ms, decoding * ms, duration * ms};
}

LoopTimeline::Piece shownOnly(std::int64_t presentation, std::int64_t duration)
{
    return {presentation * ms, std::nullopt, duration * ms};
}

TEST(LoopTimeline, FirstPieceStandsAtThePresent)
{
    LoopTimeline timeline;
    const std::size_t track = timeline.addTrack();
    const auto first = timeline.place(track, piece(700, 700, 40), 123 * ms);
    ASSERT_TRUE(first);
    EXPECT_EQ(first->presentation, 123 * ms);
    EXPECT_EQ(first->due, 123 * ms);
    EXPECT_EQ(timeline.place(track, piece(740, 740, 40), 999 * ms)->due, 163 * ms);
}

TEST(LoopTimeline, NextRoundFollowsTheLastPieceWithoutAGap)
{
    LoopTimeline timeline;
    const std::size_t track = timeline.addTrack();
    timeline.place(track, piece(0, 0, 40), Duration::zero());
    timeline.place(track, piece(40, 40, 40), Duration::zero());
    EXPECT_TRUE(timeline.endTrack(track));
    EXPECT_EQ(timeline.place(track, piece(0, 0, 40), Duration::zero())->presentation, 80 * ms);
    EXPECT_EQ(timeline.place(track, piece(40, 40, 40), Duration::zero())->presentation, 120 * ms);
    EXPECT_TRUE(timeline.endTrack(track));
    EXPECT_EQ(timeline.place(track, piece(0, 0, 40), Duration::zero())->presentation, 160 * ms);
}

TEST(LoopTimeline, TracksOfARoundBeginTogetherAfterTheLongest)
{
    LoopTimeline timeline;
    const std::size_t video = timeline.addTrack();
    const std::size_t audio = timeline.addTrack();
    timeline.place(video, piece(0, 0, 40), Duration::zero());
    timeline.place(audio, piece(0, 0, 100), Duration::zero());
    EXPECT_FALSE(timeline.endTrack(video));
    EXPECT_TRUE(timeline.endTrack(audio));
    EXPECT_EQ(timeline.place(video, piece(0, 0, 40), Duration::zero())->presentation, 100 * ms);
    EXPECT_EQ(timeline.place(audio, piece(0, 0, 100), Duration::zero())->presentation, 100 * ms);
}

TEST(LoopTimeline, PiecesAreDueInDecodingOrder)
{
    LoopTimeline timeline;
    const std::size_t track = timeline.addTrack();
    EXPECT_EQ(timeline.place(track, piece(0, -40, 40), 100 * ms)->due, 100 * ms);
    const auto second = timeline.place(track, piece(80, 0, 40), Duration::zero());
    EXPECT_EQ(second->due, 140 * ms);
    EXPECT_EQ(second->presentation, 220 * ms);
    EXPECT_EQ(timeline.place(track, piece(40, 40, 40), Duration::zero())->due, 180 * ms);
    EXPECT_TRUE(timeline.endTrack(track));
    EXPECT_EQ(timeline.place(track, piece(0, -40, 40), Duration::zero())->due, 220 * ms);
}

TEST(LoopTimeline, ReorderedFramesWithoutDecodingTimesAreDueEvenly)
{
    LoopTimeline timeline;
    const std::size_t track = timeline.addTrack();
    Duration expected{};
    for (const std::int64_t shown : {0, 120, 80, 40, 240, 200, 160})
    {
        const auto placed = timeline.place(track, shownOnly(shown, 40), Duration::zero());
        EXPECT_EQ(placed->due, expected);
        EXPECT_EQ(placed->presentation, shown * ms);
        expected += 40 * ms;
    }
}

TEST(LoopTimeline, AHoleInTheFileIsKept)
{
    LoopTimeline timeline;
    const std::size_t track = timeline.addTrack();
    timeline.place(track, shownOnly(0, 40), Duration::zero());
    EXPECT_EQ(timeline.place(track, shownOnly(5000, 40), Duration::zero())->due, 5000 * ms);
}

TEST(LoopTimeline, PieceWithoutAnyTimeIsRefusedAtFirstAndPlacedLater)
{
    LoopTimeline timeline;
    const std::size_t track = timeline.addTrack();
    EXPECT_FALSE(timeline.place(track, {}, Duration::zero()));
    timeline.place(track, piece(0, 0, 40), Duration::zero());
    EXPECT_EQ(timeline.place(track, {}, Duration::zero())->due, 40 * ms);
}

TEST(LoopTimeline, FileOfOneMomentDoesNotSpin)
{
    LoopTimeline timeline;
    const std::size_t track = timeline.addTrack();
    timeline.place(track, piece(0, 0, 0), Duration::zero());
    timeline.endTrack(track);
    EXPECT_GE(timeline.place(track, piece(0, 0, 0), Duration::zero())->due, 40 * ms);
}

}  // namespace
}  // namespace refhost
