#include "refhost/capture/SourceClock.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>

namespace refhost
{
namespace
{

constexpr Duration second = std::chrono::seconds(1);
constexpr Duration ms = std::chrono::milliseconds(1);
constexpr Duration frame = 40 * ms;
constexpr std::uint32_t rate = 90000;
constexpr std::uint32_t ssrc = 7;

double nsOf(Duration span)
{
    return static_cast<double>(span.count());
}

/// A camera with its own clock, whose packets are delayed.
class SourceClockTest : public testing::Test
{
protected:
    /// The RTP timestamp of media captured at `at`.
    std::uint32_t timestampOf(Duration at) const
    {
        const double ticks = std::floor(nsOf(at) * (1 + drift) * rate / nsOf(second));
        return firstTimestamp + static_cast<std::uint32_t>(static_cast<std::int64_t>(ticks));
    }

    /// Delivers the frame captured at `at`.
    /// \returns the error of its capture time
    Duration give(Duration at, Duration delay)
    {
        const Duration media = clock.place(timestampOf(at), ssrc, at + delay);
        const Duration captured = clock.captured(media);
        minStep = std::min(minStep, captured - lastCaptured);
        minMediaStep = std::min(minMediaStep, media - lastMedia);
        lastMedia = media;
        lastCaptured = captured;
        return captured - at;
    }

    SourceClock::Report reportAt(Duration at, Duration clockError = {})
    {
        return clock.report(timestampOf(at), ssrc, at + clockError, at + 5 * ms);
    }

    SourceClock clock{RtpClock(rate), true};
    std::uint32_t firstTimestamp = 0xfffff000U;
    double drift = 0;
    Duration lastMedia = -second;
    Duration lastCaptured = -second;
    Duration minStep = second;
    Duration minMediaStep = second;
};

TEST_F(SourceClockTest, MediaTimesFollowTheTimestampsDespiteJitter)
{
    std::mt19937 random(1);
    give(second, 3 * ms);
    const Duration first = lastMedia;
    for (std::int64_t i = 1; i < 500; ++i)
    {
        give(second + i * frame, static_cast<std::int64_t>(random() % 200) * ms);
        EXPECT_NEAR(nsOf(lastMedia - first), nsOf(i * frame), 12e3) << i;
    }
}

TEST_F(SourceClockTest, StallsOfSixSecondsChangeNoTime)
{
    for (std::int64_t i = 0; i < 1500; ++i)
    {
        const Duration at = second + i * frame;
        // The network stalls twice for six seconds and then delivers everything at once.
        const std::int64_t stallEnd = i >= 250 && i < 400 ? 250 + 150 : i >= 900 && i < 1050 ? 900 + 150 : i;
        const Duration error = give(at, (stallEnd - i) * frame + 5 * ms);
        EXPECT_NEAR(nsOf(error), 5e6, 1e6) << i;
    }
    EXPECT_GT(minStep, frame - ms);
    EXPECT_GT(minMediaStep, frame - ms);
}

TEST_F(SourceClockTest, FollowsDriftOverHoursWithoutAJump)
{
    for (const double parts : {200e-6, -200e-6})
    {
        for (const bool reports : {true, false})
        {
            SourceClock fresh(RtpClock(rate), true);
            drift = parts;
            std::mt19937 random(1);
            Duration worst{};
            Duration worstStep{};
            Duration before{};
            for (std::int64_t i = 0; i < std::int64_t{6} * 3600 * 25; ++i)
            {
                const Duration at = second + i * frame;
                const Duration arrival = at + static_cast<std::int64_t>(random() % 30) * ms;
                if (reports && i % 125 == 0)
                {
                    fresh.report(timestampOf(at), ssrc, at, arrival);
                }
                const Duration captured = fresh.captured(fresh.place(timestampOf(at), ssrc, arrival));
                if (i > std::int64_t{60} * 25)
                {
                    worst = std::max(worst, std::chrono::abs(captured - at));
                    worstStep = std::max(worstStep, std::chrono::abs(captured - before - frame));
                }
                before = captured;
            }
            EXPECT_LT(worst, reports ? 2 * ms : 20 * ms) << parts;
            EXPECT_LT(worstStep, reports ? 2 * ms : ms) << parts;
        }
    }
}

TEST_F(SourceClockTest, ReportBeforeTheMediaDatesTheFirstFrame)
{
    EXPECT_EQ(reportAt(second), SourceClock::Report::used);
    EXPECT_NEAR(nsOf(give(second + frame, 700 * ms)), 0, 1e5);
}

TEST_F(SourceClockTest, CaptureTimesConvergeToTheReportsWithoutGoingBack)
{
    for (std::int64_t i = 0; i < 100; ++i)
    {
        if (i == 10)
        {
            EXPECT_EQ(reportAt(second + 9 * frame), SourceClock::Report::used);
        }
        const Duration error = give(second + i * frame, 300 * ms);
        if (i > 30)
        {
            EXPECT_NEAR(nsOf(error), 0, 1e6) << i;
        }
    }
    EXPECT_GE(minStep, frame / 2);
}

TEST_F(SourceClockTest, InitialBurstIsDatedByItsLastFrame)
{
    // Two buffered seconds arrive at once: their last frame was captured just now.
    for (std::int64_t i = 0; i < 200; ++i)
    {
        const Duration at = second + i * frame;
        const Duration error = give(at, i < 50 ? (50 - i) * frame : Duration::zero());
        if (i > 150)
        {
            EXPECT_NEAR(nsOf(error), 0, 35e6) << i;
        }
    }
    EXPECT_GT(minStep, Duration::zero());
}

TEST_F(SourceClockTest, DelayedReportIsUsed)
{
    for (std::int64_t i = 0; i < 50; ++i)
    {
        give(second + i * frame, 5 * ms);
    }
    const Duration at = second + 50 * frame;
    EXPECT_EQ(clock.report(timestampOf(at), ssrc, at, at + 9 * second), SourceClock::Report::used);
}

TEST_F(SourceClockTest, WrongClockIsNotUsed)
{
    give(second, 5 * ms);
    EXPECT_EQ(reportAt(second, 3600 * second), SourceClock::Report::wrongClock);
    EXPECT_EQ(clock.report(timestampOf(second), ssrc, std::nullopt, second), SourceClock::Report::wrongClock);
    for (std::int64_t i = 1; i < 50; ++i)
    {
        EXPECT_NEAR(nsOf(give(second + i * frame, 5 * ms)), 5e6, 1e6);
    }
}

TEST_F(SourceClockTest, ClockThatIsCorrectedLaterIsUsedThen)
{
    give(second, 5 * ms);
    EXPECT_EQ(reportAt(second, -3600 * second), SourceClock::Report::wrongClock);
    EXPECT_EQ(reportAt(second + frame), SourceClock::Report::used);
    give(second + frame, 5 * ms);
    EXPECT_NEAR(nsOf(give(second + 2 * frame, 5 * ms)), 0, 1e5);
}

TEST_F(SourceClockTest, TimestampJumpsNeverMoveTimeBackOrFarAhead)
{
    std::mt19937 random(1);
    Duration latest{};
    for (std::int64_t i = 0; i < 5000; ++i)
    {
        const Duration at = second + i * frame;
        if (i % 20 == 19)
        {
            firstTimestamp = static_cast<std::uint32_t>(random());
        }
        if (i % 7 == 0)
        {
            clock.report(static_cast<std::uint32_t>(random()), random() % 2 == 0 ? ssrc : 8,
                         at + static_cast<std::int64_t>(random() % 20) * second - 10 * second, at);
        }
        give(at, 5 * ms);
        EXPECT_GT(lastMedia, latest - second) << i;
        latest = std::max(latest, lastMedia);
        EXPECT_NEAR(nsOf(lastMedia), nsOf(at), 60e9);
    }
    EXPECT_GT(minStep, -second);
}

TEST_F(SourceClockTest, AudioTimeNeverGoesBack)
{
    SourceClock audio(RtpClock(8000), false);
    std::mt19937 random(1);
    std::uint32_t first = 0;
    Duration before(-1);
    Duration capturedBefore(-1);
    for (std::int64_t i = 0; i < 5000; ++i)
    {
        first += i % 20 == 19 ? static_cast<std::uint32_t>(random() % 80000) - 40000 : 0;
        const Duration media =
            audio.place(first + static_cast<std::uint32_t>(i) * 160, ssrc, second + i * 20 * ms);
        EXPECT_GT(media, before);
        EXPECT_GT(audio.captured(media), capturedBefore);
        before = media;
        capturedBefore = audio.captured(media);
    }
}

TEST_F(SourceClockTest, FramesInDecodingOrderKeepTheirTimes)
{
    // I3 B1 B2 P6 B4 B5 …
    const std::int64_t order[] = {3, 1, 2, 6, 4, 5, 9, 7, 8};
    std::vector<Duration> media;
    for (std::size_t i = 0; i < std::size(order); ++i)
    {
        give(second + order[i] * frame, (static_cast<std::int64_t>(i) - order[i]) * frame + 5 * ms);
        media.push_back(lastMedia);
    }
    for (std::size_t i = 1; i < std::size(order); ++i)
    {
        EXPECT_NEAR(nsOf(media[i] - media[0]), nsOf((order[i] - order[0]) * frame), 12e3);
    }
}

}  // namespace
}  // namespace refhost
