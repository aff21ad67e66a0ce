#include "refhost/playback/PlaybackPump.h"

#include <gtest/gtest.h>

#include <memory>

#include "refhost/threads/WorkPool.h"
#include "tests/refhost/base/TransitionTable.h"
#include "tests/refhost/rtp/RtpFakes.h"

namespace refhost
{
namespace test
{
namespace
{

using namespace std::chrono_literals;

constexpr Duration frameLength = 40ms;
constexpr WallTime begin = wallTimeOfUnix(1'600'000'000);

/// A pump with one video and one audio track, fed by the test.
class PlaybackPumpTest : public testing::Test
{
protected:
    PlaybackPumpTest()
    {
        settings.clock = &clock;
        pump = std::make_unique<PlaybackPump>(settings, tracks, begin, begin + 1h);
    }

    std::shared_ptr<PlaybackTrack> addTrack(bool video)
    {
        SubMediaInfo info;
        info.trackId = video ? "video" : "audio";
        info.mediaType = info.trackId;
        info.clockRate = video ? 90000 : 8000;
        auto track = std::make_shared<PlaybackTrack>(std::weak_ptr<PlaybackSession>(), info, 1364,
                                                     RtcpWriter::randomName(), settings);
        SafePointer<FakeTransport> transport(new FakeTransport(video ? frames : blocks));
        EXPECT_EQ(0, track->sender.connect(transport, track));
        tracks.add(track);
        return track;
    }

    static PlaybackUnit unitAt(Duration offset, bool video = true)
    {
        PlaybackUnit unit;
        unit.unit = makeUnit(7, 0, true, 1);
        unit.video = video;
        unit.wall = unit.media = unit.due = begin + offset;
        unit.duration = frameLength;
        return unit;
    }

    void moveTo(Duration offset, bool goesOn = false)
    {
        PlaybackSource::Request request;
        request.from = begin + offset;
        request.end = begin + 1h;
        pump->moveTo(request, unitAt(offset), goesOn);
    }

    MonotonicTime run()
    {
        return pump->run(clock.now());
    }

    ManualClock clock;
    PlaybackSettings settings;
    PlaybackTracks tracks;
    std::shared_ptr<Wire> frames = std::make_shared<Wire>();
    std::shared_ptr<Wire> blocks = std::make_shared<Wire>();
    std::unique_ptr<PlaybackPump> pump;
};

TEST_F(PlaybackPumpTest, StartsWithoutAPlaceAndSendsNothing)
{
    const auto video = addTrack(true);
    EXPECT_EQ(pump->state(), PlaybackState::unplaced);
    EXPECT_EQ(run(), PooledWork::never);
    EXPECT_DEBUG_DEATH(pump->start(*video, begin), "illegal transition");
}

TEST_F(PlaybackPumpTest, StaysPausedAtAPlaceUntilATrackStarts)
{
    const auto video = addTrack(true);
    moveTo(0s);
    EXPECT_EQ(pump->state(), PlaybackState::paused);
    run();
    EXPECT_TRUE(frames->units().empty());
    pump->start(*video, begin);
    EXPECT_EQ(pump->state(), PlaybackState::playing);
    run();
    EXPECT_EQ(frames->units().size(), 1U);
}

TEST_F(PlaybackPumpTest, ReturnsWhenTheNextUnitIsDue)
{
    const auto video = addTrack(true);
    moveTo(0s);
    pump->start(*video, begin);
    pump->readAhead().queue().add(unitAt(frameLength));
    EXPECT_EQ(run(), clock.now() + 40ms);
    clock.advance(std::chrono::milliseconds(40));
    EXPECT_EQ(run(), PooledWork::never) << "the queue is empty and the end is not known";
    EXPECT_EQ(frames->units().size(), 2U);
}

TEST_F(PlaybackPumpTest, EndsWithByeWhenTheLastFrameWasDisplayed)
{
    const auto video = addTrack(true);
    moveTo(0s);
    pump->start(*video, begin);
    pump->readAhead().add({{}, PlaybackSource::Result::end}, clock.now());
    EXPECT_EQ(run(), clock.now() + 40ms);
    EXPECT_EQ(pump->state(), PlaybackState::playing);
    clock.advance(std::chrono::milliseconds(40));
    run();
    EXPECT_EQ(pump->state(), PlaybackState::ended);
    EXPECT_FALSE(video->playing());
    EXPECT_DEBUG_DEATH(pump->start(*video, begin), "illegal transition");
}

TEST_F(PlaybackPumpTest, PausesWithItsLastTrack)
{
    const auto video = addTrack(true);
    const auto audio = addTrack(false);
    moveTo(0s);
    pump->start(*video, begin);
    pump->start(*audio, begin);
    pump->stop(*audio);
    EXPECT_EQ(pump->state(), PlaybackState::playing);
    pump->stop(*video);
    EXPECT_EQ(pump->state(), PlaybackState::paused);
}

TEST_F(PlaybackPumpTest, NewPlacePausesUnlessPlayContinues)
{
    const auto video = addTrack(true);
    moveTo(0s);
    pump->start(*video, begin);
    moveTo(10 * frameLength, true);
    EXPECT_EQ(pump->state(), PlaybackState::playing);
    moveTo(0s);
    EXPECT_EQ(pump->state(), PlaybackState::paused);
}

TEST_F(PlaybackPumpTest, AfterTheEndANewPlaceIsPaused)
{
    const auto video = addTrack(true);
    moveTo(0s);
    pump->start(*video, begin);
    pump->readAhead().add({{}, PlaybackSource::Result::end}, clock.now());
    run();
    clock.advance(std::chrono::milliseconds(40));
    run();
    ASSERT_EQ(pump->state(), PlaybackState::ended);
    moveTo(0s, true);
    EXPECT_EQ(pump->state(), PlaybackState::paused);
}

TEST_F(PlaybackPumpTest, StoppingASessionThatDoesNotPlayChangesNoState)
{
    const auto video = addTrack(true);
    pump->stop(*video);
    EXPECT_EQ(pump->state(), PlaybackState::unplaced);
    moveTo(0s);
    pump->stop(*video);
    EXPECT_EQ(pump->state(), PlaybackState::paused);
}

TEST_F(PlaybackPumpTest, KnowsWhetherTheReadUnitsFitTheMode)
{
    const auto video = addTrack(true);
    moveTo(0s);
    EXPECT_TRUE(pump->readsForMode());
    EXPECT_FALSE(pump->readsFor(*video)) << "the request was for no video";
    pump->setSpeed(PlaySpeed::used(8, 1));
    EXPECT_FALSE(pump->readsForMode()) << "key frames alone are to be read";
}

TEST(PlaybackTrackState, ByeFollowsAPauseAlone)
{
    using S = PlaybackTrackState;
    expectTransitions<S>(
        {S::silent, S::playing, S::paused},
        {{S::silent, S::playing}, {S::playing, S::paused}, {S::paused, S::playing}, {S::paused, S::silent}});
}

}  // namespace
}  // namespace test
}  // namespace refhost
