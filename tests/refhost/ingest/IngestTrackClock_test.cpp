#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <string>
#include <tuple>

#include "refhost/base/ByteOrder.h"
#include "refhost/base/HostClock.h"
#include "refhost/ingest/IngestTrack.h"
#include "tests/refhost/rtp/payload/H264Units.h"

namespace refhost
{
namespace
{

using namespace std::chrono_literals;

constexpr int payloadType = 96;
constexpr Duration day = 24h;
constexpr Duration frameLength = 1s;  // so that a day does not last long under the sanitizers
constexpr Duration reportLength = 5s;
constexpr double ticksASecond = 90000;

/// Whose time it is that sender reports state.
enum class Wall
{
    none,    ///< the camera sends no reports
    set,     ///< its wall clock is set by the network, its media clock is not
    runsOff  ///< its wall clock is its media clock
};

/// The errors of recorded times, as they come.
class TimeJudge : public EncodedUnitSink
{
public:
    void onEncodedUnit(const EncodedUnitPtr& unit) override
    {
        const Duration error = unit->captureTime - captured;
        worst = std::max(worst, std::chrono::abs(error));
        lastError = error;
        if (units > 0)
        {
            const Duration step = unit->captureTime - last_;
            shortestStep = std::min(shortestStep, step);
            longestStep = std::max(longestStep, step);
        }
        EXPECT_EQ(unit->decodeTime, unit->captureTime);
        last_ = unit->captureTime;
        ++units;
    }
    void onDiscontinuity() override {}

    /// Forgets the extremes.
    void startAgain()
    {
        worst = {};
        shortestStep = day;
        longestStep = {};
    }

    MonotonicTime captured;  ///< of the next unit, in truth
    Duration worst{};
    Duration lastError{};
    Duration shortestStep = day;
    Duration longestStep{};
    std::int64_t units = 0;

private:
    MonotonicTime last_;
};

/// A camera whose clock runs off, behind a network that delays by up to 30 milliseconds, now and then by half a
/// second.
class DriftingCamera
{
public:
    DriftingCamera(double drift, Wall wall, IngestTrack::Clock clock) : drift_(drift), wall_(wall)
    {
        std::string error;
        track_ = IngestTrack::make(
            {Codec::h264, test::h264::track(true), payloadType, clock, epoch_, "camera 7/2"}, mediaTap_,
            error);
        mediaTap_->add(judge);
    }

    /// Sends what it captures in [from, to). \param stall  the network keeps it so long, and delivers it at once
    void run(Duration from, Duration to, Duration stall = {})
    {
        for (Duration at = from; at < to; at += frameLength)
        {
            if (at.count() % reportLength.count() == 0)
            {
                report(at, std::max(from + stall, at));
            }
            judge->captured = epoch_ + at;
            give(at, std::max(from + stall, at));
        }
    }

    bool clockFoundWrong = false;
    const std::shared_ptr<TimeJudge> judge = std::make_shared<TimeJudge>();

private:
    double seconds(Duration at) const
    {
        return std::chrono::duration<double>(at).count() * (1 + drift_);
    }

    std::uint32_t timestampOf(Duration at) const
    {
        return 0xffff8000U + static_cast<std::uint32_t>(std::llround(seconds(at) * ticksASecond));
    }

    MonotonicTime delayed(Duration sent)
    {
        const Duration delay = random_() % 500 == 0 ? 500ms : std::chrono::milliseconds(5 + random_() % 25);
        arrival_ = std::max(arrival_, epoch_ + sent + delay);
        return arrival_;
    }

    void give(Duration at, Duration sent)
    {
        const test::Bytes slice = number_ % 50 == 0 ? test::h264::idr() : test::h264::p();
        test::Bytes packet(12);
        packet[0] = 0x80;
        packet[1] = 0x80 | payloadType;
        writeBig16(packet.data() + 2, static_cast<std::uint16_t>(number_++));
        writeBig32(packet.data() + 4, timestampOf(at));
        packet.insert(packet.end(), slice.begin(), slice.end());
        track_->onPacket(packet.data(), packet.size(), delayed(sent));
    }

    void report(Duration at, Duration sent)
    {
        if (wall_ == Wall::none)
        {
            return;
        }
        const Duration wall =
            wall_ == Wall::set ? at : durationOf(std::chrono::duration<double>(seconds(at)));
        const NtpTime ntp(wallEpoch_ + wall);
        test::Bytes packet(28);
        packet[0] = 0x80;
        packet[1] = 200;
        packet[3] = 6;
        writeBig32(packet.data() + 8, ntp.wholeSeconds());
        writeBig32(packet.data() + 12, ntp.fraction());
        writeBig32(packet.data() + 16, timestampOf(at));
        const IngestTrack::Report found = track_->onReport(packet.data(), packet.size(), delayed(sent));
        clockFoundWrong = clockFoundWrong || found.clockWrong;
    }

    const double drift_;
    const Wall wall_;
    const MonotonicTime epoch_ = HostClock::system().now();
    const WallTime wallEpoch_ = HostClock::system().wall().mapping().at(epoch_);
    const std::shared_ptr<MediaTap> mediaTap_ = std::make_shared<MediaTap>();
    std::unique_ptr<IngestTrack> track_;
    std::mt19937 random_{3};
    MonotonicTime arrival_ = epoch_;
    std::uint32_t number_ = 0;
};

struct Case
{
    const char* name;
    double drift;
    Wall wall;
    IngestTrack::Clock clock;
};

constexpr auto camera = IngestTrack::Clock::camera;
constexpr auto server = IngestTrack::Clock::server;

class IngestTrackDay : public testing::TestWithParam<Case>
{
protected:
    DriftingCamera source_{GetParam().drift, GetParam().wall, GetParam().clock};
    TimeJudge& judge_ = *source_.judge;
    const Duration bound_ = GetParam().wall == Wall::set && GetParam().clock == camera ? 3ms : 45ms;
};

TEST_P(IngestTrackDay, RecordedTimesFollowADriftingCameraWithoutAStep)
{
    constexpr Duration settling = 2min;
    source_.run(0s, settling);
    judge_.startAgain();
    // The network stalls for six seconds every four hours.
    for (Duration at = settling; at < day; at += 4h)
    {
        const Duration end = std::min(at + 4h, day);
        source_.run(at, at + 6s, 6s);
        source_.run(at + 6s, end);
    }
    EXPECT_EQ(judge_.units, day / frameLength);
    EXPECT_LT(judge_.worst, bound_);
    EXPECT_LT(std::chrono::abs(judge_.lastError), bound_);
    EXPECT_GT(judge_.shortestStep, frameLength - 2ms);
    EXPECT_LT(judge_.longestStep, frameLength + 2ms);
    EXPECT_FALSE(source_.clockFoundWrong);
}

TEST_P(IngestTrackDay, StallNeitherCollapsesTimesNorStepsBack)
{
    constexpr Duration stall = 9s;
    source_.run(0s, 60s);
    judge_.startAgain();
    for (Duration at = 60s; at < 300s; at += 60s)
    {
        source_.run(at, at + stall, stall);
        source_.run(at + stall, at + 60s);
    }
    EXPECT_EQ(judge_.units, 300s / frameLength);
    EXPECT_LT(judge_.worst, bound_);
    EXPECT_GT(judge_.shortestStep, frameLength - 2ms);
    EXPECT_LT(judge_.longestStep, frameLength + 2ms);
}

INSTANTIATE_TEST_SUITE_P(Cameras, IngestTrackDay,
                         testing::Values(Case{"FastWithReports", 200e-6, Wall::set, camera},
                                         Case{"SlowWithReports", -200e-6, Wall::set, camera},
                                         Case{"FastWithoutReports", 200e-6, Wall::none, camera},
                                         Case{"SlowWithoutReports", -200e-6, Wall::none, camera},
                                         Case{"FastByTheServersClock", 200e-6, Wall::runsOff, server},
                                         Case{"SlowByTheServersClock", -200e-6, Wall::runsOff, server}),
                         [](const auto& each) { return std::string(each.param.name); });

TEST(IngestTrackClock, WallClockThatRunsOffIsFollowedUntilItIsWrongAndThenArrivalWithoutAStepBack)
{
    for (const double drift : {200e-6, -200e-6})
    {
        DriftingCamera source(drift, Wall::runsOff, camera);
        source.run(0s, day);
        EXPECT_TRUE(source.clockFoundWrong);
        EXPECT_EQ(source.judge->units, day / frameLength);
        EXPECT_LT(source.judge->worst, SourceClock::maxClockError + 100ms);
        EXPECT_LT(std::chrono::abs(source.judge->lastError), 45ms);
        EXPECT_GT(source.judge->shortestStep, frameLength / 2 - 1ms);
        EXPECT_LT(source.judge->longestStep, frameLength * 3 / 2 + 1ms);
    }
}

}  // namespace
}  // namespace refhost
