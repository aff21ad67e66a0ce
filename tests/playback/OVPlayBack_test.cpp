#include "playback/OVPlayBack.h"

#include <gtest/gtest.h>

#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "tests/fakehost/FakeStatus.h"
#include "tests/playback/PlayBackFixture.h"

namespace
{

class OVPlayBackTest : public PlayBackFixture
{
protected:
    ~OVPlayBackTest() noexcept override {}
};

/// An operation that reaches the dispatcher without the session's lock.
struct Forwarded
{
    const char* name;
    std::function<int(OVPlayBack&)> call;
    const char* operation;
    const char* arguments;

    friend std::ostream& operator<<(std::ostream& out, const Forwarded& row)
    {
        return out << row.name;
    }
};

const std::vector<Forwarded>& allForwarded()
{
    static const std::vector<Forwarded> all = {
        {"setSpeed", [](OVPlayBack& it) { return it.setSpeed("s", "t", 2, 0.25); }, "setSpeed",
         "s, t, 2, 0.25"},
        {"getCurPlayRange",
         [](OVPlayBack& it)
         {
             double start = 0;
             double end = 0;
             return it.getCurPlayRange("s", "t", start, end);
         },
         "getCurPlayRange", "s, t"},
        {"getTrackSSRC",
         [](OVPlayBack& it)
         {
             int ssrc = 0;
             return it.getTrackSSRC("s", "t", ssrc);
         },
         "getTrackSSRC", "s, t"},
        {"getConnectionState",
         [](OVPlayBack& it)
         {
             bool connected = false;
             return it.getConnectionState("s", "t", connected);
         },
         "getConnectionState", "s, t"},
        {"setPauseRangeWithoutTheSession", [](OVPlayBack& it) { return it.setPauseRange("s", "t", 4.5); },
         "setPauseRange", "t, 4.5"},
    };
    return all;
}

class OVPlayBackForwards : public OVPlayBackTest, public testing::WithParamInterface<Forwarded>
{
protected:
    ~OVPlayBackForwards() noexcept override {}
};

}  // namespace

TEST_F(OVPlayBackTest, PlayOfAPlayingTrackIsAbsorbed)
{
    prepare();
    for (const std::string& track : {video_, audio_})
    {
        EXPECT_EQ(0, session_->play(id_, track));
        EXPECT_EQ(0, session_->play(id_, track));
        EXPECT_EQ(0, session_->play("another session", track)) << "the flag is the track's";
    }
    EXPECT_EQ((Calls{
                  "RTPPlayBackDispacher#1::play(session, trackID=0)",
                  "RTPPlayBackDispacher#1::play(session, trackID=1)",
              }),
              host_.calls());
}

TEST_F(OVPlayBackTest, PauseOfATrackThatDoesNotPlayIsAbsorbed)
{
    prepare();
    for (const std::string& track : {video_, audio_})
    {
        EXPECT_EQ(0, session_->pause(id_, track));
    }
    EXPECT_TRUE(host_.calls().empty());
    session_->play(id_, video_);
    EXPECT_EQ(0, session_->pause(id_, audio_)) << "each track has a flag of its own";
    EXPECT_EQ(0, session_->pause(id_, video_));
    EXPECT_EQ(0, session_->pause(id_, video_));
    session_->play(id_, audio_);
    EXPECT_EQ(0, session_->pause(id_, audio_));
    EXPECT_EQ(0, session_->pause(id_, audio_));
    EXPECT_EQ((Calls{
                  "RTPPlayBackDispacher#1::play(session, trackID=0)",
                  "RTPPlayBackDispacher#1::pause(session, trackID=0)",
                  "RTPPlayBackDispacher#1::play(session, trackID=1)",
                  "RTPPlayBackDispacher#1::pause(session, trackID=1)",
              }),
              host_.calls());
}

TEST_F(OVPlayBackTest, RefusedPlayAndPauseChangeNoFlag)
{
    prepare();
    for (const std::string& track : {video_, audio_})
    {
        host_.script("RTPPlayBackDispacher::play", {-501, 5, 0});
        host_.script("RTPPlayBackDispacher::pause", {-502, 6, 0});
        EXPECT_EQ(-501, session_->play(id_, track));
        EXPECT_EQ(5, session_->play(id_, track));
        EXPECT_EQ(0, session_->pause(id_, track)) << "absorbed: it does not play";
        EXPECT_EQ(0, session_->play(id_, track));
        EXPECT_EQ(-502, session_->pause(id_, track));
        EXPECT_EQ(6, session_->pause(id_, track));
        EXPECT_EQ(0, session_->play(id_, track)) << "absorbed: it still plays";
        EXPECT_EQ(0, session_->pause(id_, track));
    }
    EXPECT_EQ(6u, host_.callCount("RTPPlayBackDispacher::play"));
    EXPECT_EQ(6u, host_.callCount("RTPPlayBackDispacher::pause"));
}

TEST_F(OVPlayBackTest, TrackThatIsNeitherOfTheTwoReachesTheDispatcherAndIsThenNotFound)
{
    prepare();
    host_.always("RTPPlayBackDispacher::play", 0);
    host_.always("RTPPlayBackDispacher::pause", 0);
    for (const char* track : {"trackID=2", "trackID=", "trackID=00", ""})
    {
        host_.clearCalls();
        EXPECT_EQ(-8, session_->play(id_, track));
        EXPECT_EQ(-8, session_->pause(id_, track));
        EXPECT_EQ((Calls{
                      std::string("RTPPlayBackDispacher#1::play(session, ") + track + ")",
                      std::string("RTPPlayBackDispacher#1::pause(session, ") + track + ")",
                  }),
                  host_.calls());
    }
    host_.script("RTPPlayBackDispacher::play", {-501});
    host_.script("RTPPlayBackDispacher::pause", {-502});
    EXPECT_EQ(-501, session_->play(id_, "trackID=2"));
    EXPECT_EQ(-502, session_->pause(id_, "trackID=2"));
}

TEST_F(OVPlayBackTest, StopEndsTheTrackWhateverTheDispatcherReturns)
{
    prepare();
    session_->play(id_, video_);
    session_->play(id_, audio_);
    host_.clearCalls();
    host_.script("RTPPlayBackDispacher::deleteSessionConnection", {-503, 7});
    EXPECT_EQ(0, session_->stop(id_, video_));
    EXPECT_EQ(0, session_->stop(id_, audio_));
    EXPECT_EQ((Calls{
                  "RTPPlayBackDispacher#1::deleteSessionConnection(session, trackID=0)",
                  "RTPPlayBackDispacher#1::deleteSessionConnection(session, trackID=1)",
              }),
              host_.calls());
    host_.clearCalls();
    EXPECT_EQ(0, session_->pause(id_, video_)) << "absorbed: it does not play";
    EXPECT_EQ(0, session_->pause(id_, audio_));
    EXPECT_TRUE(host_.calls().empty());
    EXPECT_EQ(fakeTrackUnknown, session_->play(id_, video_)) << "not absorbed";
    EXPECT_EQ(fakeTrackUnknown, session_->play(id_, audio_));
    EXPECT_EQ(0, host_.living("IConnection"));
}

TEST_F(OVPlayBackTest, StopOfOneTrackLeavesTheOtherPlaying)
{
    prepare();
    session_->play(id_, video_);
    session_->play(id_, audio_);
    session_->stop(id_, audio_);
    host_.clearCalls();
    EXPECT_EQ(0, session_->play(id_, video_));
    EXPECT_TRUE(host_.calls().empty());
}

TEST_F(OVPlayBackTest, StopOfAnUnknownTrackDoesNotReachTheDispatcher)
{
    prepare();
    for (const char* track : {"trackID=2", "trackID=", "trackID=00", ""})
    {
        EXPECT_EQ(-8, session_->stop(id_, track)) << track;
    }
    EXPECT_TRUE(host_.calls().empty());
}

TEST_F(OVPlayBackTest, BeforeInitBothTracksHaveTheEmptyName)
{
    host_.always("RTPPlayBackDispacher::play", 0);
    EXPECT_EQ(-8, session_->stop(id_, video_));
    EXPECT_EQ(0, session_->play(id_, ""));
    EXPECT_EQ(0, session_->play(id_, ""));
    EXPECT_EQ(1u, host_.callCount("RTPPlayBackDispacher::play"));
    EXPECT_EQ(0, session_->pause(id_, "")) << "absorbed: the second one does not play";
    EXPECT_EQ(0u, host_.callCount("RTPPlayBackDispacher::pause"));
    EXPECT_EQ(0, session_->stop(id_, ""));
}

TEST_F(OVPlayBackTest, InitDoesNotResetTheFlags)
{
    prepare();
    session_->play(id_, video_);
    init();
    host_.clearCalls();
    EXPECT_EQ(0, session_->play(id_, video_));
    EXPECT_TRUE(host_.calls().empty());
}

TEST_F(OVPlayBackTest, PlayPauseAndStopHoldTheLockAtTheirLinesWhileTheDispatcherWorks)
{
    prepare();
    host_.recordLocks(true);
    session_->play(id_, video_);
    session_->pause(id_, video_);
    session_->stop(id_, video_);
    host_.recordLocks(false);
    const std::string unlock = "OVMutex::Unlock(OVMutexManager.h, 71)";
    EXPECT_EQ((Calls{
                  "OVMutex::Lock(OVPlayBack, 104)",
                  "RTPPlayBackDispacher#1::play(session, trackID=0)",
                  unlock,
                  "OVMutex::Lock(OVPlayBack, 125)",
                  "RTPPlayBackDispacher#1::pause(session, trackID=0)",
                  unlock,
                  "OVMutex::Lock(OVPlayBack, 146)",
                  "RTPPlayBackDispacher#1::deleteSessionConnection(session, trackID=0)",
                  unlock,
              }),
              host_.calls());
}

TEST_F(OVPlayBackTest, AbsorbedAndUnknownOnesTakeTheLockToo)
{
    prepare();
    host_.recordLocks(true);
    session_->pause(id_, video_);
    session_->stop(id_, "trackID=2");
    host_.recordLocks(false);
    const std::string unlock = "OVMutex::Unlock(OVMutexManager.h, 71)";
    EXPECT_EQ((Calls{"OVMutex::Lock(OVPlayBack, 125)", unlock, "OVMutex::Lock(OVPlayBack, 146)", unlock}),
              host_.calls());
}

TEST_P(OVPlayBackForwards, ArgumentsAndResultUnchangedWithoutItsLock)
{
    const Forwarded& operation = GetParam();
    const std::string name = std::string("RTPPlayBackDispacher#1::") + operation.operation;
    host_.script(name, {0, 17, -300});
    host_.recordLocks(true);
    EXPECT_EQ(0, operation.call(*session_));
    EXPECT_EQ(17, operation.call(*session_));
    EXPECT_EQ(-300, operation.call(*session_));
    host_.recordLocks(false);
    const std::string call = name + "(" + operation.arguments + ")";
    EXPECT_EQ((Calls{call, call, call}), host_.calls());
}

INSTANTIATE_TEST_SUITE_P(Every, OVPlayBackForwards, testing::ValuesIn(allForwarded()),
                         [](const auto& row) { return row.param.name; });

TEST_F(OVPlayBackTest, ReportIntervalReachesTheDispatcherWithoutSessionAndTrack)
{
    session_->setRTCPFrequence("s", "t", 9);
    EXPECT_EQ((Calls{"RTPPlayBackDispacher#1::setRTCPFrequence(9)"}), host_.calls());
}

TEST_F(OVPlayBackTest, AnswersOfTheDispatcherReachTheCaller)
{
    prepare();
    double start = 0;
    double end = 0;
    EXPECT_EQ(0, session_->getCurPlayRange(id_, video_, start, end));
    EXPECT_EQ(2.5, start);
    EXPECT_EQ(30.0, end);
    int ssrc = 0;
    EXPECT_EQ(0, session_->getTrackSSRC(id_, audio_, ssrc));
    EXPECT_EQ(5002, ssrc);
    bool connected = false;
    EXPECT_EQ(0, session_->getConnectionState(id_, video_, connected));
    EXPECT_TRUE(connected);
}

TEST_F(OVPlayBackTest, DestructionReleasesTheDispatcherWithoutNotifyingIt)
{
    prepare();
    session_->play(id_, video_);
    host_.clearCalls();
    const std::size_t records = host_.recordsInUse();
    session_.reset();
    EXPECT_TRUE(host_.calls().empty());
    EXPECT_EQ(0, host_.living("RTPPlayBackDispacher"));
    EXPECT_EQ(0, host_.living("IConnection"));
    EXPECT_EQ(records - 4, host_.recordsInUse()) << "dispatcher, source and two connections";
}

TEST_F(OVPlayBackTest, SessionsHaveDispatchersOfTheirOwn)
{
    OVPlayBack other;
    EXPECT_EQ(2, host_.living("RTPPlayBackDispacher"));
    other.setRTCPFrequence("s", "t", 9);
    EXPECT_EQ((Calls{"RTPPlayBackDispacher#2::setRTCPFrequence(9)"}), host_.calls());
}
