#include "refhost/capture/SourceClock.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>

namespace refhost
{
namespace
{

constexpr std::int64_t second = 1'000'000'000;
constexpr std::int64_t ms = 1'000'000;
constexpr std::int64_t frame = 40 * ms;
constexpr std::uint32_t rate = 90000;
constexpr std::uint32_t ssrc = 7;

/// A camera with a clock of its own, whose packets take some time.
class SourceClockTest : public testing::Test
{
protected:
    /// The RTP timestamp of what is captured at `at`.
    std::uint32_t timestampOf(std::int64_t at) const
    {
        const double ticks = std::floor(static_cast<double>(at) * (1 + drift) * rate / second);
        return firstTimestamp + static_cast<std::uint32_t>(static_cast<std::int64_t>(ticks));
    }

    /// Has the frame that was captured at `at` arrive.
    /// \returns the error of its capture time
    std::int64_t give(std::int64_t at, std::int64_t delay)
    {
        const std::int64_t media = clock.place(timestampOf(at), ssrc, at + delay);
        const std::int64_t captured = clock.captured(media);
        minStep = std::min(minStep, captured - lastCaptured);
        minMediaStep = std::min(minMediaStep, media - lastMedia);
        lastMedia = media;
        lastCaptured = captured;
        return captured - at;
    }

    SourceClock::Report reportAt(std::int64_t at, std::int64_t clockError = 0)
    {
        return clock.report(timestampOf(at), ssrc, at + clockError, at + 5 * ms);
    }

    SourceClock clock{rate, true};
    std::uint32_t firstTimestamp = 0xfffff000U;
    double drift = 0;
    std::int64_t lastMedia = -second;
    std::int64_t lastCaptured = -second;
    std::int64_t minStep = second;
    std::int64_t minMediaStep = second;
};

TEST_F(SourceClockTest, MediaTimesFollowTheTimestampsWhateverTheNetworkDoes)
{
    std::mt19937 random(1);
    give(second, 3 * ms);
    const std::int64_t first = lastMedia;
    for (std::int64_t i = 1; i < 500; ++i)
    {
        give(second + i * frame, random() % 200 * ms);
        EXPECT_NEAR(static_cast<double>(lastMedia - first), static_cast<double>(i * frame), 12e3) << i;
    }
}

TEST_F(SourceClockTest, StallsOfSixSecondsMoveNoTime)
{
    for (std::int64_t i = 0; i < 1500; ++i)
    {
        const std::int64_t at = second + i * frame;
        // Twice the network stands still for six seconds, and brings everything at once then.
        const std::int64_t stallEnd = i >= 250 && i < 400 ? 250 + 150 : i >= 900 && i < 1050 ? 900 + 150 : i;
        const std::int64_t error = give(at, (stallEnd - i) * frame + 5 * ms);
        EXPECT_NEAR(static_cast<double>(error), 5e6, 1e6) << i;
    }
    EXPECT_GT(minStep, frame - ms);
    EXPECT_GT(minMediaStep, frame - ms);
}

TEST_F(SourceClockTest, DriftIsFollowedOverHoursWithoutAJump)
{
    for (const double parts : {200e-6, -200e-6})
    {
        for (const bool reports : {true, false})
        {
            SourceClock fresh(rate, true);
            drift = parts;
            std::mt19937 random(1);
            std::int64_t worst = 0;
            std::int64_t worstStep = 0;
            std::int64_t before = 0;
            for (std::int64_t i = 0; i < 6 * 3600 * 25; ++i)
            {
                const std::int64_t at = second + i * frame;
                const std::int64_t arrival = at + static_cast<std::int64_t>(random() % 30) * ms;
                if (reports && i % 125 == 0)
                {
                    fresh.report(timestampOf(at), ssrc, at, arrival);
                }
                const std::int64_t captured = fresh.captured(fresh.place(timestampOf(at), ssrc, arrival));
                if (i > 60 * 25)
                {
                    worst = std::max(worst, std::abs(captured - at));
                    worstStep = std::max(worstStep, std::abs(captured - before - frame));
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
    EXPECT_NEAR(static_cast<double>(give(second + frame, 700 * ms)), 0, 1e5);
}

TEST_F(SourceClockTest, CaptureTimesTurnToTheReportsWithoutGoingBack)
{
    for (std::int64_t i = 0; i < 100; ++i)
    {
        if (i == 10)
        {
            EXPECT_EQ(reportAt(second + 9 * frame), SourceClock::Report::used);
        }
        const std::int64_t error = give(second + i * frame, 300 * ms);
        if (i > 30)
        {
            EXPECT_NEAR(static_cast<double>(error), 0, 1e6) << i;
        }
    }
    EXPECT_GE(minStep, frame / 2);
}

TEST_F(SourceClockTest, BurstAtTheStartIsDatedByWhatCannotBe)
{
    // Two seconds that were kept come at once: their last frame was captured just now.
    for (std::int64_t i = 0; i < 200; ++i)
    {
        const std::int64_t at = second + i * frame;
        const std::int64_t error = give(at, i < 50 ? (50 - i) * frame : 0);
        if (i > 150)
        {
            EXPECT_NEAR(static_cast<double>(error), 0, 35e6) << i;
        }
    }
    EXPECT_GT(minStep, 0);
}

TEST_F(SourceClockTest, ReportThatWasHeldUpIsBelieved)
{
    for (std::int64_t i = 0; i < 50; ++i)
    {
        give(second + i * frame, 5 * ms);
    }
    const std::int64_t at = second + 50 * frame;
    EXPECT_EQ(clock.report(timestampOf(at), ssrc, at, at + 9 * second), SourceClock::Report::used);
}

TEST_F(SourceClockTest, WrongClockIsNotBelieved)
{
    give(second, 5 * ms);
    EXPECT_EQ(reportAt(second, 3600 * second), SourceClock::Report::wrongClock);
    EXPECT_EQ(clock.report(timestampOf(second), ssrc, std::nullopt, second), SourceClock::Report::wrongClock);
    for (std::int64_t i = 1; i < 50; ++i)
    {
        EXPECT_NEAR(static_cast<double>(give(second + i * frame, 5 * ms)), 5e6, 1e6);
    }
}

TEST_F(SourceClockTest, ClockThatIsSetLaterIsBelievedThen)
{
    give(second, 5 * ms);
    EXPECT_EQ(reportAt(second, -3600 * second), SourceClock::Report::wrongClock);
    EXPECT_EQ(reportAt(second + frame), SourceClock::Report::used);
    give(second + frame, 5 * ms);
    EXPECT_NEAR(static_cast<double>(give(second + 2 * frame, 5 * ms)), 0, 1e5);
}

TEST_F(SourceClockTest, TimestampsThatJumpNeverTakeTheTimeBackOrFarAhead)
{
    std::mt19937 random(1);
    std::int64_t latest = 0;
    for (std::int64_t i = 0; i < 5000; ++i)
    {
        const std::int64_t at = second + i * frame;
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
        EXPECT_NEAR(static_cast<double>(lastMedia), static_cast<double>(at), 60e9);
    }
    EXPECT_GT(minStep, -second);
}

TEST_F(SourceClockTest, AudioNeverGoesBackAtAll)
{
    SourceClock audio(8000, false);
    std::mt19937 random(1);
    std::uint32_t first = 0;
    std::int64_t before = -1;
    std::int64_t capturedBefore = -1;
    for (std::int64_t i = 0; i < 5000; ++i)
    {
        first += i % 20 == 19 ? static_cast<std::uint32_t>(random() % 80000) - 40000 : 0;
        const std::int64_t media =
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
    const std::int64_t shown[] = {3, 1, 2, 6, 4, 5, 9, 7, 8};
    std::vector<std::int64_t> media;
    for (std::size_t i = 0; i < std::size(shown); ++i)
    {
        give(second + shown[i] * frame, (static_cast<std::int64_t>(i) - shown[i]) * frame + 5 * ms);
        media.push_back(lastMedia);
    }
    for (std::size_t i = 1; i < std::size(shown); ++i)
    {
        EXPECT_NEAR(static_cast<double>(media[i] - media[0]),
                    static_cast<double>((shown[i] - shown[0]) * frame), 12e3);
    }
}

}  // namespace
}  // namespace refhost
