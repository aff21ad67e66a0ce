#include "refhost/capture/LoopTimeline.h"

#include <gtest/gtest.h>

namespace refhost
{
namespace
{

constexpr std::int64_t ms = 1'000'000;

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
    timeline.place(track, piece(0, 0, 40), 0);
    timeline.place(track, piece(40, 40, 40), 0);
    EXPECT_TRUE(timeline.endTrack(track));
    EXPECT_EQ(timeline.place(track, piece(0, 0, 40), 0)->presentation, 80 * ms);
    EXPECT_EQ(timeline.place(track, piece(40, 40, 40), 0)->presentation, 120 * ms);
    EXPECT_TRUE(timeline.endTrack(track));
    EXPECT_EQ(timeline.place(track, piece(0, 0, 40), 0)->presentation, 160 * ms);
}

TEST(LoopTimeline, TracksOfARoundBeginTogetherAfterTheLongest)
{
    LoopTimeline timeline;
    const std::size_t video = timeline.addTrack();
    const std::size_t audio = timeline.addTrack();
    timeline.place(video, piece(0, 0, 40), 0);
    timeline.place(audio, piece(0, 0, 100), 0);
    EXPECT_FALSE(timeline.endTrack(video));
    EXPECT_TRUE(timeline.endTrack(audio));
    EXPECT_EQ(timeline.place(video, piece(0, 0, 40), 0)->presentation, 100 * ms);
    EXPECT_EQ(timeline.place(audio, piece(0, 0, 100), 0)->presentation, 100 * ms);
}

TEST(LoopTimeline, PiecesAreDueInDecodingOrder)
{
    LoopTimeline timeline;
    const std::size_t track = timeline.addTrack();
    EXPECT_EQ(timeline.place(track, piece(0, -40, 40), 100 * ms)->due, 100 * ms);
    const auto second = timeline.place(track, piece(80, 0, 40), 0);
    EXPECT_EQ(second->due, 140 * ms);
    EXPECT_EQ(second->presentation, 220 * ms);
    EXPECT_EQ(timeline.place(track, piece(40, 40, 40), 0)->due, 180 * ms);
    EXPECT_TRUE(timeline.endTrack(track));
    EXPECT_EQ(timeline.place(track, piece(0, -40, 40), 0)->due, 220 * ms);
}

TEST(LoopTimeline, ReorderedFramesWithoutDecodingTimesAreDueEvenly)
{
    LoopTimeline timeline;
    const std::size_t track = timeline.addTrack();
    std::int64_t expected = 0;
    for (const std::int64_t shown : {0, 120, 80, 40, 240, 200, 160})
    {
        const auto placed = timeline.place(track, shownOnly(shown, 40), 0);
        EXPECT_EQ(placed->due, expected);
        EXPECT_EQ(placed->presentation, shown * ms);
        expected += 40 * ms;
    }
}

TEST(LoopTimeline, AHoleInTheFileIsKept)
{
    LoopTimeline timeline;
    const std::size_t track = timeline.addTrack();
    timeline.place(track, shownOnly(0, 40), 0);
    EXPECT_EQ(timeline.place(track, shownOnly(5000, 40), 0)->due, 5000 * ms);
}

TEST(LoopTimeline, PieceWithoutAnyTimeIsRefusedAtFirstAndPlacedLater)
{
    LoopTimeline timeline;
    const std::size_t track = timeline.addTrack();
    EXPECT_FALSE(timeline.place(track, {}, 0));
    timeline.place(track, piece(0, 0, 40), 0);
    EXPECT_EQ(timeline.place(track, {}, 0)->due, 40 * ms);
}

TEST(LoopTimeline, FileOfOneMomentDoesNotSpin)
{
    LoopTimeline timeline;
    const std::size_t track = timeline.addTrack();
    timeline.place(track, piece(0, 0, 0), 0);
    timeline.endTrack(track);
    EXPECT_GE(timeline.place(track, piece(0, 0, 0), 0)->due, 40 * ms);
}

}  // namespace
}  // namespace refhost
