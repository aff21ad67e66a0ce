#include "refhost/rtp/RtpTimeline.h"

#include <gtest/gtest.h>

#include <cstdint>

namespace refhost
{
namespace
{

using namespace std::chrono_literals;

constexpr MonotonicTime begin(1'700'000'000s);

AccessUnit unitAt(std::uint32_t timestamp, MonotonicTime capture)
{
    AccessUnit unit;
    unit.rtpTimestamp = timestamp;
    unit.captureTime = capture;
    return unit;
}

TEST(RtpTimeline, StartsAtTheFirstValueWhateverTheSourceSays)
{
    RtpTimeline timeline(RtpClock(90000), 4711);
    bool moved = false;
    EXPECT_EQ(4711U, timeline.peek(unitAt(999, begin), 3));
    EXPECT_EQ(4711U, timeline.take(unitAt(999, begin), 3, moved));
    EXPECT_TRUE(moved);
}

TEST(RtpTimeline, FollowsTheSourceAcrossTheWrap)
{
    RtpTimeline timeline(RtpClock(90000), 0xffffff00U);
    bool moved = false;
    timeline.take(unitAt(0xfffffff0U, begin), 0, moved);
    EXPECT_EQ(0xffffff00U + 3600U, timeline.take(unitAt(0xfffffff0U + 3600U, begin + 1ns), 0, moved));
    EXPECT_FALSE(moved);
}

TEST(RtpTimeline, AdvancesByTheElapsedCaptureTimeWhenTheSourceRestarts)
{
    RtpTimeline timeline(RtpClock(90000), 1000);
    bool moved = false;
    timeline.take(unitAt(50, begin), 0, moved);
    EXPECT_EQ(1000U + 225000U, timeline.take(unitAt(7, begin + 2500ms), 1, moved));
    EXPECT_TRUE(moved);
    EXPECT_EQ(1000U + 225000U + 3600U, timeline.take(unitAt(7 + 3600, begin + 3s), 1, moved));
    EXPECT_FALSE(moved);
}

TEST(RtpTimeline, NeverGoesBackWhereTheCaptureClockDoes)
{
    RtpTimeline timeline(RtpClock(8000), 1000);
    bool moved = false;
    timeline.take(unitAt(50, begin), 0, moved);
    EXPECT_EQ(1001U, timeline.take(unitAt(0, begin - 1h), 1, moved));
}

TEST(RtpTimeline, KeepsWhatItAnnounced)
{
    RtpTimeline timeline(RtpClock(8000), 1000);
    bool moved = false;
    EXPECT_EQ(1000U, timeline.announce(begin));
    timeline.take(unitAt(50, begin), 0, moved);
    const std::uint32_t announced = timeline.announce(begin + 1s);
    EXPECT_EQ(9000U, announced);
    EXPECT_EQ(announced, timeline.announce(begin + 2s));
    EXPECT_EQ(announced, timeline.take(unitAt(50 + 16000, begin + 2s), 0, moved));
    EXPECT_TRUE(moved);
}

TEST(RtpTimeline, GivesTheTimestampOfAnyInstant)
{
    RtpTimeline timeline(RtpClock(90000), 500);
    bool moved = false;
    timeline.take(unitAt(0, begin), 0, moved);
    EXPECT_EQ(500U + 9000U, timeline.at(begin + 100ms));
    EXPECT_EQ(500U - 9000U, timeline.at(begin - 100ms));
    // Three days: ticks and nanoseconds overflow what they are counted in.
    EXPECT_EQ(500U + static_cast<std::uint32_t>(259200ULL * 90000ULL), timeline.at(begin + 72h));
}

}  // namespace
}  // namespace refhost
