#include "refhost/base/WallClock.h"

#include <gtest/gtest.h>

#include <cstdlib>

#include "refhost/base/HostClock.h"
#include "tests/CapturedErrors.h"
#include "tests/refhost/base/ManualClock.h"

namespace refhost
{
namespace
{

constexpr std::int64_t millisecond = 1'000'000;
constexpr std::int64_t minute = 60'000;
constexpr std::int64_t decade = 10 * 365 * 24 * 60 * minute;

class WallClockTest : public testing::Test
{
protected:
    WallClockTest()
    {
        clock.wall().mapping();
    }

    // Wall clock by the mapping less the system's, nanoseconds.
    std::int64_t behind()
    {
        return clock.wall().mapping().at(clock.monotonicNs()) - clock.wallNs();
    }

    test::ManualClock clock;
};

TEST_F(WallClockTest, ShowsWhatTheSystemShows)
{
    EXPECT_EQ(0, behind());
    clock.advanceMs(90 * minute);
    EXPECT_EQ(0, behind());
    EXPECT_EQ(0U, clock.wall().steps());
}

TEST_F(WallClockTest, AClockThatWasSetIsFollowedAtOnce)
{
    for (const std::int64_t by : {decade, -decade, 250 * minute, std::int64_t{-201}})
    {
        const std::uint32_t before = clock.wall().steps();
        clock.setWall(by);
        clock.advanceMs(200);
        EXPECT_EQ(0, behind()) << by;
        EXPECT_EQ(before + 1, clock.wall().steps()) << by;
    }
    EXPECT_EQ(2U, clock.wall().mapping().stepsBack);
}

TEST_F(WallClockTest, AStepIsReportedWithItsSizeAndBothTimes)
{
    CapturedErrors log;
    clock.setWall(-3'600'500);
    clock.advanceMs(200);
    clock.wall().mapping();
    clock.advanceMs(minute);
    clock.wall().mapping();
    const auto lines = log.linesWith("the clock was set");
    ASSERT_EQ(1U, lines.size());
    EXPECT_NE(std::string::npos, lines[0].find("set back by 3600.500 seconds, from 2023-11-14T22:13:20Z to "
                                               "2023-11-14T21:13:19Z"))
        << lines[0];
}

TEST_F(WallClockTest, ASmallCorrectionIsFollowedSmoothly)
{
    for (const std::int64_t by : {150, -150})
    {
        clock.setWall(by);
        std::int64_t last = clock.wall().mapping().at(clock.monotonicNs());
        for (int i = 0; i < 310; ++i)
        {
            clock.advanceMs(1000);
            const std::int64_t now = clock.wall().mapping().at(clock.monotonicNs());
            ASSERT_NEAR(1e9, static_cast<double>(now - last), WallClock::slewNsPerSecond);
            last = now;
        }
        EXPECT_EQ(0, behind()) << by;
    }
    EXPECT_EQ(0U, clock.wall().steps());
}

TEST_F(WallClockTest, TheErrorOfAReadingIsNoCorrection)
{
    const std::int64_t before = clock.wall().mapping().offsetNs;
    clock.setWallNs(90'000);
    clock.advanceMs(minute);
    EXPECT_EQ(before, clock.wall().mapping().offsetNs);
}

TEST_F(WallClockTest, SmallCorrectionsThatAddUpAreAStepInTheEnd)
{
    for (int i = 0; i < 5; ++i)
    {
        clock.setWall(150);
        clock.advanceMs(1000);
        EXPECT_LT(std::abs(behind()), WallClock::minStepNs);
    }
    EXPECT_GT(clock.wall().steps(), 0U);
}

TEST_F(WallClockTest, AMachineThatWasSuspendedSeesAStepForward)
{
    // The monotonic clock stands still meanwhile.
    clock.setWall(8 * 60 * minute);
    clock.advanceMs(200);
    EXPECT_EQ(0, behind());
    EXPECT_EQ(1U, clock.wall().mapping().steps);
    EXPECT_EQ(0U, clock.wall().mapping().stepsBack);
}

// A system clock whose readings are torn apart: the thread waits for a processor in between.
class TornClock : public HostClock
{
public:
    MonotonicTime now() const override
    {
        return MonotonicTime(Duration(now_));
    }
    WallTime wallNow() const override
    {
        now_ += tornMs * millisecond;
        return WallTime(Duration(now_));
    }

    std::int64_t tornMs = 0;
    mutable std::int64_t now_ = 1'700'000'000'000 * millisecond;
};

TEST(WallClock, AReadingThatTookLongIsNoStep)
{
    TornClock clock;
    clock.wall().mapping();
    clock.tornMs = 3000;
    for (int i = 0; i < 20; ++i)
    {
        clock.now_ += 200 * millisecond;
        EXPECT_EQ(0, clock.wall().mapping().offsetNs);
    }
    EXPECT_EQ(0U, clock.wall().steps());
}

}  // namespace
}  // namespace refhost
