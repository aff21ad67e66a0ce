#include "refhost/playback/PlaybackQueue.h"

#include <gtest/gtest.h>

#include "tests/refhost/rtp/RtpFakes.h"

namespace refhost
{
namespace test
{
namespace
{

using std::chrono::milliseconds;

PlaybackUnit unitAt(bool video, std::int64_t dueMs, std::uint32_t range = 0)
{
    PlaybackUnit unit;
    unit.unit = makeUnit(0, 0, true, 2);
    unit.video = video;
    unit.media = unit.due = WallTime(milliseconds(dueMs));
    unit.range = range;
    return unit;
}

std::vector<std::int64_t> order(PlaybackQueue& queue)
{
    std::vector<std::int64_t> found;
    for (; !queue.empty(); queue.pop())
    {
        found.push_back(queue.front().due.time_since_epoch() / milliseconds(1));
    }
    return found;
}

TEST(PlaybackQueue, AudioGoesInFrontOfLaterFrames)
{
    PlaybackQueue queue;
    for (const int due : {0, 40, 80, 120})
    {
        queue.add(unitAt(true, due));
    }
    for (const int due : {20, 60, 100, 140})
    {
        queue.add(unitAt(false, due));
    }
    EXPECT_EQ(order(queue), (std::vector<std::int64_t>{0, 20, 40, 60, 80, 100, 120, 140}));
}

TEST(PlaybackQueue, NothingGoesInFrontOfTheFirst)
{
    PlaybackQueue queue;
    queue.add(unitAt(true, 100));
    queue.add(unitAt(false, 50));
    EXPECT_EQ(order(queue), (std::vector<std::int64_t>{100, 50}));
}

TEST(PlaybackQueue, UnitsOfATrackKeepTheirOrder)
{
    PlaybackQueue queue;
    queue.add(unitAt(true, 0));
    queue.add(unitAt(true, 80));
    queue.add(unitAt(true, 40));
    EXPECT_EQ(order(queue), (std::vector<std::int64_t>{0, 80, 40}));
}

TEST(PlaybackQueue, UnitsDoNotMoveOverAGap)
{
    PlaybackQueue queue;
    queue.add(unitAt(true, 0));
    queue.add(unitAt(true, 5000));
    queue.add(unitAt(false, 20, 1));
    EXPECT_EQ(order(queue), (std::vector<std::int64_t>{0, 5000, 20}));
}

TEST(PlaybackQueue, ReportsBytesAndSpan)
{
    PlaybackQueue queue;
    EXPECT_EQ(queue.span(), Duration::zero());
    queue.add(unitAt(true, 0));
    queue.add(unitAt(true, 40));
    EXPECT_EQ(queue.span(), milliseconds(40));
    EXPECT_EQ(queue.bytes(), 2 * queue.front().unit->bytes.size());
    queue.pop();
    queue.pop();
    EXPECT_EQ(queue.bytes(), 0U);
}

TEST(PlaybackQueue, SpanAcrossAGapIsZero)
{
    PlaybackQueue queue;
    queue.add(unitAt(true, 0));
    queue.add(unitAt(true, 7'200'000, 1));
    EXPECT_EQ(queue.span(), Duration::zero());
}

}  // namespace
}  // namespace test
}  // namespace refhost
