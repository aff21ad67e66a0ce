#include "refhost/base/WallClock.h"

#include <gtest/gtest.h>

#include <chrono>

#include "refhost/base/HostClock.h"
#include "tests/CapturedErrors.h"
#include "tests/refhost/base/ManualClock.h"

namespace refhost
{
namespace
{

using namespace std::chrono_literals;

constexpr std::int64_t minute = 60'000;
constexpr std::int64_t decade = minute * 60 * 24 * 365 * 10;

class WallClockTest : public testing::Test
{
protected:
    WallClockTest()
    {
        clock.wall().mapping();
    }

    // The present date by the mapping.
    WallTime mapped()
    {
        return clock.wall().mapping().at(clock.now());
    }

    // The mapping's error against the system's wall clock.
    Duration error()
    {
        return mapped() - clock.wallNow();
    }

    test::ManualClock clock;
};

TEST_F(WallClockTest, EqualsTheSystemsClock)
{
    EXPECT_EQ(Duration::zero(), error());
    clock.advance(std::chrono::milliseconds(90 * minute));
    EXPECT_EQ(Duration::zero(), error());
    EXPECT_EQ(0U, clock.wall().steps());
}

TEST_F(WallClockTest, FollowsAStepAtOnce)
{
    for (const std::int64_t by : {decade, -decade, 250 * minute, std::int64_t{-201}})
    {
        const std::uint32_t before = clock.wall().steps();
        clock.setWall(std::chrono::milliseconds(by));
        clock.advance(std::chrono::milliseconds(200));
        EXPECT_EQ(Duration::zero(), error()) << by;
        EXPECT_EQ(before + 1, clock.wall().steps()) << by;
    }
    EXPECT_EQ(2U, clock.wall().mapping().stepsBack);
}

TEST_F(WallClockTest, LogsAStepWithItsSizeAndBothDates)
{
    CapturedErrors log;
    clock.setWall(std::chrono::milliseconds(-3'600'500));
    clock.advance(std::chrono::milliseconds(200));
    clock.wall().mapping();
    clock.advance(std::chrono::milliseconds(minute));
    clock.wall().mapping();
    const auto lines = log.linesWith("the clock was set");
    ASSERT_EQ(1U, lines.size());
    EXPECT_NE(std::string::npos, lines[0].find("set back by 3600.500 seconds, from 2023-11-14T22:13:20Z to "
                                               "2023-11-14T21:13:19Z"))
        << lines[0];
}

TEST_F(WallClockTest, FollowsASmallCorrectionSmoothly)
{
    for (const std::int64_t by : {150, -150})
    {
        clock.setWall(std::chrono::milliseconds(by));
        WallTime last = mapped();
        for (int i = 0; i < 310; ++i)
        {
            clock.advance(std::chrono::milliseconds(1000));
            const WallTime now = mapped();
            ASSERT_LE(std::chrono::abs(now - last - 1s), WallClock::slewPerSecond);
            last = now;
        }
        EXPECT_EQ(Duration::zero(), error()) << by;
    }
    EXPECT_EQ(0U, clock.wall().steps());
}

TEST_F(WallClockTest, IgnoresADifferenceWithinTheErrorOfAReading)
{
    const Duration before = clock.wall().mapping().offset;
    clock.setWall(std::chrono::microseconds(90));
    clock.advance(std::chrono::milliseconds(minute));
    EXPECT_EQ(before, clock.wall().mapping().offset);
}

TEST_F(WallClockTest, SmallCorrectionsThatAddUpBecomeAStep)
{
    for (int i = 0; i < 5; ++i)
    {
        clock.setWall(std::chrono::milliseconds(150));
        clock.advance(std::chrono::milliseconds(1000));
        EXPECT_LT(std::chrono::abs(error()), WallClock::minStep);
    }
    EXPECT_GT(clock.wall().steps(), 0U);
}

TEST_F(WallClockTest, SuspendIsAStepForward)
{
    // The monotonic clock stops during a suspend.
    clock.setWall(std::chrono::milliseconds(minute * 60 * 8));
    clock.advance(std::chrono::milliseconds(200));
    EXPECT_EQ(Duration::zero(), error());
    EXPECT_EQ(1U, clock.wall().mapping().steps);
    EXPECT_EQ(0U, clock.wall().mapping().stepsBack);
}

// Time passes between the readings of the two clocks, as when the thread waits for a processor.
class PreemptedClock : public HostClock
{
public:
    MonotonicTime now() const override
    {
        return MonotonicTime(sinceEpoch);
    }
    WallTime wallNow() const override
    {
        sinceEpoch += pause;
        return WallTime(sinceEpoch);
    }

    Duration pause{};
    mutable Duration sinceEpoch = std::chrono::seconds(1'700'000'000);
};

TEST(WallClock, IgnoresAReadingThatTookLong)
{
    PreemptedClock clock;
    clock.wall().mapping();
    clock.pause = 3s;
    for (int i = 0; i < 20; ++i)
    {
        clock.sinceEpoch += 200ms;
        EXPECT_EQ(Duration::zero(), clock.wall().mapping().offset);
    }
    EXPECT_EQ(0U, clock.wall().steps());
}

}  // namespace
}  // namespace refhost
