#include "refhost/live/SenderState.h"

#include <gtest/gtest.h>

#include <memory>

#include "refhost/base/HostStatus.h"
#include "refhost/live/LiveSession.h"
#include "refhost/live/TrackSender.h"
#include "tests/refhost/base/TransitionTable.h"
#include "tests/refhost/live/LiveFixture.h"

namespace refhost
{
namespace test
{
namespace
{

TEST(SenderState, TheTableIsWhatTheHeaderSays)
{
    using S = SenderState;
    expectTransitions<S>({S::idle, S::starting, S::announced, S::running, S::paused, S::ended},
                         {{S::idle, S::starting},
                          {S::idle, S::ended},
                          {S::starting, S::announced},
                          {S::starting, S::paused},
                          {S::announced, S::running},
                          {S::announced, S::paused},
                          {S::running, S::paused},
                          {S::paused, S::starting},
                          {S::paused, S::ended}});
}

TEST(SenderFlow, WaitingForAKeyFrameIsNotCongested)
{
    using F = SenderFlow;
    expectTransitions<F>({F::keepingUp, F::congested, F::waitingForKeyFrame},
                         {{F::keepingUp, F::congested},
                          {F::keepingUp, F::waitingForKeyFrame},
                          {F::congested, F::keepingUp},
                          {F::congested, F::waitingForKeyFrame},
                          {F::waitingForKeyFrame, F::keepingUp}});
}

/// One sender, pumped by hand.
class TrackSenderStates : public LiveFixture
{
protected:
    TrackSenderStates()
    {
        sender = std::make_shared<TrackSender>(session, stream, trackInfo(video),
                                               std::make_shared<LiveStream>(source, settings), 1364,
                                               RtcpWriter::randomName());
    }

    void connect()
    {
        SafePointer<FakeTransport> transport(new FakeTransport(wire));
        EXPECT_EQ(0, sender->connect(transport, sender));
    }

    void pump()
    {
        sender->pump(nullptr, nullptr, false);
    }

    std::shared_ptr<LiveSession> session = std::make_shared<LiveSession>();
    std::shared_ptr<Wire> wire = std::make_shared<Wire>();
    std::shared_ptr<TrackSender> sender;
};

TEST_F(TrackSenderStates, AFirstUnitIsAnnouncedUntilAllOfItIsSent)
{
    connect();
    EXPECT_EQ(sender->state(), SenderState::idle);
    EXPECT_EQ(sender->play(session), 0);
    EXPECT_EQ(sender->state(), SenderState::starting);
    pump();
    EXPECT_EQ(sender->state(), SenderState::starting) << "nothing came yet";
    tickVideo();
    wire->capacity = 1;
    pump();
    EXPECT_EQ(sender->state(), SenderState::announced);
    wire->capacity = SIZE_MAX;
    pump();
    EXPECT_EQ(sender->state(), SenderState::running);
    sender->end();
}

TEST_F(TrackSenderStates, PausesFromWhereverItPlaysAndStartsAgain)
{
    connect();
    EXPECT_EQ(sender->play(session), 0);
    sender->pause();
    EXPECT_EQ(sender->state(), SenderState::paused);
    EXPECT_EQ(sender->play(session), 0);
    EXPECT_EQ(sender->state(), SenderState::starting);
    tickVideo();
    pump();
    EXPECT_EQ(sender->state(), SenderState::running);
    sender->pause();
    sender->pause();
    EXPECT_EQ(sender->state(), SenderState::paused);
    sender->end();
}

TEST_F(TrackSenderStates, EndedIsFinal)
{
    connect();
    EXPECT_EQ(sender->play(session), 0);
    sender->end();
    EXPECT_EQ(sender->state(), SenderState::ended);
    sender->end();
    sender->pause();
    EXPECT_EQ(sender->play(session), hostConnectionUnusable);
    EXPECT_EQ(sender->state(), SenderState::ended);
    EXPECT_EQ(source->viewers, 0);
}

TEST_F(TrackSenderStates, AnUnusedSenderJustEnds)
{
    sender->pause();
    EXPECT_EQ(sender->state(), SenderState::idle);
    EXPECT_EQ(sender->play(session), hostConnectionUnusable);
    EXPECT_EQ(sender->state(), SenderState::idle);
    sender->end();
    EXPECT_EQ(sender->state(), SenderState::ended);
}

}  // namespace
}  // namespace test
}  // namespace refhost
