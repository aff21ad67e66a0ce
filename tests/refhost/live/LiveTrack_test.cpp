#include "refhost/live/LiveTrack.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "refhost/live/LiveSession.h"
#include "tests/refhost/base/Nanoseconds.h"
#include "tests/refhost/live/LiveFakes.h"

namespace refhost
{
namespace test
{
namespace
{

constexpr std::int64_t ms = 1'000'000;

class LiveTrackTest : public testing::Test
{
protected:
    LiveTrackTest()
    {
        settings.clock = &clock;
    }

    std::shared_ptr<LiveTrack> make(bool video)
    {
        return std::make_shared<LiveTrack>(video, past, settings);
    }

    static AccessUnitPtr unit(std::int64_t captureMs, bool key, std::size_t packets = 1)
    {
        return makeUnit(static_cast<std::uint32_t>(captureMs * 90), captureMs * ms, key, packets);
    }

    ManualClock clock;
    LiveSettings settings;
    std::shared_ptr<StreamPast> past = std::make_shared<StreamPast>();
};

TEST_F(LiveTrackTest, KeepsThePresentGopAndTheOneBefore)
{
    const auto track = make(true);
    for (int i = 0; i < 25; ++i)
    {
        track->onAccessUnit(unit(i * 40, i % 10 == 0));
    }
    const LiveTrack::View view = track->look(12);
    EXPECT_EQ(10U, view.base);
    EXPECT_EQ(25U, view.head);
    EXPECT_TRUE(view.startable);
    EXPECT_EQ(20U, view.newest);
    EXPECT_EQ(12 * 40 * ms, nsOf(view.at.unit->captureTime));
    EXPECT_EQ(nullptr, track->look(9).at.unit);
    EXPECT_EQ(nullptr, track->look(25).at.unit);
    EXPECT_EQ(20U, track->newestStart().index);
}

TEST_F(LiveTrackTest, UnitsInFrontOfTheFirstKeyFrameAreNoStart)
{
    const auto track = make(true);
    track->onAccessUnit(unit(0, false));
    EXPECT_EQ(nullptr, track->newestStart().unit);
    track->onAccessUnit(unit(40, true));
    EXPECT_EQ(1U, track->newestStart().index);
    EXPECT_EQ(1U, track->look(0).base);
}

TEST_F(LiveTrackTest, GopTooBigForTheRingIsNoStart)
{
    settings.ringBytes = 10000;
    const auto track = make(true);
    track->onAccessUnit(unit(0, true, 3));
    for (int i = 1; i < 10; ++i)
    {
        track->onAccessUnit(unit(i * 40, false, 3));
    }
    EXPECT_EQ(nullptr, track->newestStart().unit);
    const LiveTrack::View view = track->look(0);
    EXPECT_FALSE(view.startable);
    EXPECT_EQ(7U, view.base);  // three units of 2,876 bytes
    track->onAccessUnit(unit(400, true, 3));
    EXPECT_EQ(10U, track->newestStart().index);
}

TEST_F(LiveTrackTest, AUnitBiggerThanTheRingIsKeptAlone)
{
    settings.ringBytes = 1000;
    const auto track = make(true);
    track->onAccessUnit(unit(0, true, 9));
    EXPECT_NE(nullptr, track->newestStart().unit);
}

TEST_F(LiveTrackTest, TheNumberOfUnitsIsBounded)
{
    settings.ringUnits = 5;
    const auto track = make(true);
    for (int i = 0; i < 100; ++i)
    {
        track->onAccessUnit(unit(i * 40, i == 0));
    }
    EXPECT_EQ(95U, track->look(0).base);
}

TEST_F(LiveTrackTest, UnitsWithoutPacketsAreDropped)
{
    const auto track = make(true);
    track->onAccessUnit(nullptr);
    track->onAccessUnit(std::make_shared<AccessUnit>());
    EXPECT_EQ(0U, track->head());
}

TEST_F(LiveTrackTest, AudioKeepsTwoSecondsByItselfAndMoreWhereTheFrameNeedsIt)
{
    const auto audio = make(false);
    for (int i = 0; i < 200; ++i)
    {
        audio->onAccessUnit(unit(i * 20, true));
    }
    EXPECT_EQ(99U, audio->look(0).base);
    past->videoSince = MonotonicTime(Duration(100 * 20 * ms));
    for (int i = 200; i < 400; ++i)
    {
        audio->onAccessUnit(unit(i * 20, true));
    }
    EXPECT_EQ(100U, audio->look(0).base);
    past->videoSince = StreamPast::none;
    audio->onAccessUnit(unit(400 * 20, true));
    EXPECT_EQ(300U, audio->look(0).base);
}

TEST_F(LiveTrackTest, FindsTheFirstUnitOfACaptureTime)
{
    const auto audio = make(false);
    for (int i = 0; i < 50; ++i)
    {
        audio->onAccessUnit(unit(1000 + i * 20, true));
    }
    EXPECT_EQ(0U, audio->firstSince(MonotonicTime(Duration(0)), 0).index);
    EXPECT_EQ(10U, audio->firstSince(MonotonicTime(Duration(1200 * ms)), 0).index);
    EXPECT_EQ(11U, audio->firstSince(MonotonicTime(Duration(1200 * ms + 1)), 0).index);
    EXPECT_EQ(30U, audio->firstSince(MonotonicTime(Duration(1200 * ms)), 30).index);
    EXPECT_EQ(nullptr, audio->firstSince(MonotonicTime(Duration(9000 * ms)), 0).unit);
    EXPECT_EQ(nullptr, audio->firstSince(MonotonicTime(Duration(1200 * ms)), 50).unit);
    EXPECT_EQ(nullptr, audio->firstSince(MonotonicTime(Duration(1200 * ms)), 5000).unit);
}

TEST_F(LiveTrackTest, DiscontinuityClearsTheRingAndPutsEverySenderBehind)
{
    const auto track = make(true);
    track->onAccessUnit(unit(0, true));
    EXPECT_EQ(MonotonicTime(), past->videoSince.load());
    const std::uint64_t head = track->head();
    track->onDiscontinuity();
    EXPECT_EQ(StreamPast::none, past->videoSince.load());
    EXPECT_EQ(nullptr, track->newestStart().unit);
    EXPECT_GT(track->look(0).base, head);
    track->onAccessUnit(unit(40, true));
    EXPECT_EQ(1U, track->newestStart().epoch);
}

TEST_F(LiveTrackTest, LeavingSessionIsReleasedWithTheNextUnit)
{
    const auto track = make(true);
    std::vector<std::shared_ptr<LiveSession>> sessions;
    std::vector<LiveTrack::SubscriberSlot> slots(5, LiveTrack::noSlot);
    for (LiveTrack::SubscriberSlot& slot : slots)
    {
        sessions.push_back(std::make_shared<LiveSession>());
        track->join(sessions.back(), slot);
    }
    track->onAccessUnit(unit(0, true));
    for (const auto& session : sessions)
    {
        EXPECT_EQ(3, session.use_count());  // here, the list, and its copy for the fan-out
    }
    // In an order that moves others to freed slots.
    std::size_t left = slots.size();
    for (const std::size_t who : {1U, 4U, 0U, 3U, 2U})
    {
        track->leave(slots[who]);
        EXPECT_EQ(LiveTrack::noSlot, slots[who]);
        track->onAccessUnit(unit(40, false));
        EXPECT_EQ(1, sessions[who].use_count());
        --left;
        std::size_t staying = 0;
        for (const auto& session : sessions)
        {
            staying += session.use_count() == 3 ? 1U : 0U;
        }
        EXPECT_EQ(left, staying);
    }
}

}  // namespace
}  // namespace test
}  // namespace refhost
