#include "refhost/rtsp/session/SessionTrack.h"

#include <gtest/gtest.h>

#include "refhost/rtsp/session/SessionState.h"
#include "tests/refhost/base/TransitionTable.h"
#include "tests/refhost/rtp/RtpFakes.h"
#include "tests/refhost/rtsp/session/FakeControllers.h"

namespace refhost
{
namespace
{

using test::FakeTransport;
using test::Wire;

TEST(SessionTrackState, TheTableIsWhatTheHeaderSays)
{
    using S = SessionTrackState;
    test::expectTransitions<S>({S::ready, S::preparing, S::starting, S::playing},
                               {{S::ready, S::preparing},
                                {S::ready, S::starting},
                                {S::preparing, S::ready},
                                {S::preparing, S::starting},
                                {S::starting, S::ready},
                                {S::starting, S::playing},
                                {S::playing, S::ready}});
}

TEST(SessionState, EndedIsFinal)
{
    using S = SessionState;
    test::expectTransitions<S>({S::fresh, S::played, S::ended},
                               {{S::fresh, S::played}, {S::fresh, S::ended}, {S::played, S::ended}});
}

TEST(SessionTrack, BelongsToThePlayThatStartedItUntilTheNext)
{
    SessionTrack track("trackID=0");
    EXPECT_FALSE(track.playing());
    track.startPlay();
    track.play();
    EXPECT_TRUE(track.playing());
    EXPECT_TRUE(track.startedByPlay());
    track.startPlay();
    EXPECT_TRUE(track.playing());
    EXPECT_FALSE(track.startedByPlay()) << "a PLAY that fails does not pause what played before";
    track.pause();
    EXPECT_EQ(track.state(), SessionTrackState::ready);
}

TEST(SessionTrack, PreparesUntilItsPlayIsReady)
{
    SessionTrack track("trackID=0");
    track.prepare();
    EXPECT_FALSE(track.playing());
    EXPECT_TRUE(track.startedByPlay());
    track.play();
    EXPECT_EQ(track.state(), SessionTrackState::starting);
}

TEST(SessionTrack, AnotherPlayForgetsThePreparationOfThePrevious)
{
    SessionTrack track("trackID=0");
    track.prepare();
    track.startPlay();
    EXPECT_EQ(track.state(), SessionTrackState::ready);
}

TEST(SessionTrack, OneThatPlaysGoesOnWhileANewPlaceIsPrepared)
{
    SessionTrack track("trackID=0");
    track.play();
    track.startPlay();
    track.prepare();
    EXPECT_EQ(track.state(), SessionTrackState::playing);
    EXPECT_FALSE(track.startedByPlay());
}

TEST(SessionTrack, ClosesItsTransportUnlessOthersShareIt)
{
    for (const bool shared : {false, true})
    {
        const auto wire = std::make_shared<Wire>();
        wire->traits.shared = shared;
        const SafePointer<FakeTransport> transport(new FakeTransport(wire));
        SessionTrack track("trackID=0");
        track.delivery.transport.emplace(transport);
        track.close();
        EXPECT_EQ(transport->state(), shared ? SendStatus::sent : SendStatus::closed);
    }
}

TEST(SessionTrack, WithoutATransportThereIsNothingToClose)
{
    SessionTrack track("trackID=0");
    track.close();
    EXPECT_FALSE(track.delivery.transport.has_value());
}

}  // namespace
}  // namespace refhost
