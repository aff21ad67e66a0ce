#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <vector>

#include "tests/AllocationCounter.h"
#include "tests/audioback/ManagerFixture.h"

namespace
{

using std::chrono::microseconds;
using Waits = std::vector<microseconds>;

const microseconds idleWait{300000};
const microseconds activeWait{10000};

class OVAudioBackWorker : public ManagerWithPlayer
{
protected:
    ~OVAudioBackWorker() noexcept override {}
};

const char* const receiveErased1 =
    "OVAudioBackDispatcherMgr::recvAndPlayMediaData erase recv error  num is:1\n";
const char* const receiveErased2 =
    "OVAudioBackDispatcherMgr::recvAndPlayMediaData erase recv error  num is:2\n";
const char* const rtcpErased1 = "OVAudioBackDispatcherMgr::recvAndSendRTCPData erase recv error num is:1\n";
const char* const rtcpErased2 = "OVAudioBackDispatcherMgr::recvAndSendRTCPData erase recv error num is:2\n";

}  // namespace

// --- run ---

TEST_F(OVAudioBackWorker, IterationWithoutSessionsWaits300MillisecondsAndLeavesTheOutputClosed)
{
    CapturedOutput output;
    EXPECT_EQ(0, manager_->run());
    EXPECT_EQ("", output.text());
    EXPECT_EQ((Calls{"OrvaneTime::wait(0, 300000)"}), host_.calls());
    EXPECT_EQ(idleWait, host_.now());
}

TEST_F(OVAudioBackWorker, IterationWithOnlyPausedSessionsWaits300Milliseconds)
{
    ASSERT_EQ(0, add("s1"));
    host_.clearCalls();
    EXPECT_EQ(0, manager_->run());
    EXPECT_EQ((Calls{"AudioDispatcher#1::isPlaying()", "OrvaneTime::wait(0, 300000)"}), host_.calls());
}

TEST_F(OVAudioBackWorker, FirstPlayingSessionOpensTheOutputThenIsServedAndTheIterationWaits10Milliseconds)
{
    addPlaying("s1");
    CapturedOutput output;
    EXPECT_EQ(0, manager_->run());
    EXPECT_EQ("", output.text());
    EXPECT_EQ((Calls{
                  "AudioDispatcher#1::isPlaying()",
                  "IMediaPlayer::close()",
                  "IMediaPlayer::setDeviceInfo(device)",
                  "IMediaPlayer::open()",
                  "AudioDispatcher#1::isPlaying()",
                  "AudioDispatcher#1::recvAndPlayMediaData()",
                  "AudioDispatcher#1::isPlaying()",
                  "AudioDispatcher#1::recvAndSendRTCPData()",
                  "OrvaneTime::wait(0, 10000)",
              }),
              host_.calls());
}

TEST_F(OVAudioBackWorker, FurtherIterationsLeaveTheOpenOutputAlone)
{
    addPlaying("s1");
    manager_->run();
    host_.clearCalls();
    manager_->run();
    EXPECT_EQ((Calls{
                  "AudioDispatcher#1::isPlaying()",
                  "AudioDispatcher#1::isPlaying()",
                  "AudioDispatcher#1::recvAndPlayMediaData()",
                  "AudioDispatcher#1::isPlaying()",
                  "AudioDispatcher#1::recvAndSendRTCPData()",
                  "OrvaneTime::wait(0, 10000)",
              }),
              host_.calls());
    EXPECT_EQ((Waits{activeWait, activeWait}), host_.waits());
}

TEST_F(OVAudioBackWorker, LastPauseClosesTheOutputOnceOnTheNextIteration)
{
    addPlaying("s1");
    manager_->run();
    manager_->pauseAudio("s1");
    host_.clearCalls();
    EXPECT_EQ(0, manager_->run());
    EXPECT_EQ(0, manager_->run());
    EXPECT_EQ((Calls{
                  "AudioDispatcher#1::isPlaying()",
                  "IMediaPlayer::close()",
                  "OrvaneTime::wait(0, 300000)",
                  "AudioDispatcher#1::isPlaying()",
                  "OrvaneTime::wait(0, 300000)",
              }),
              host_.calls());
}

TEST_F(OVAudioBackWorker, RemovalOfTheLastSessionClosesTheOutputOnce)
{
    addPlaying("s1");
    manager_->run();
    manager_->clearAllSession();
    host_.clearCalls();
    manager_->run();
    manager_->run();
    EXPECT_EQ(1u, host_.callCount("IMediaPlayer::close"));
}

TEST_F(OVAudioBackWorker, OutputThatDoesNotOpenIsReportedAndRetriedAfter300Milliseconds)
{
    addPlaying("s1");
    host_.script("IMediaPlayer::open", {-33, -34});
    CapturedOutput output;
    EXPECT_EQ(0, manager_->run());
    EXPECT_EQ(0, manager_->run());
    EXPECT_EQ(
        "OVAudioBackDispatcherMgr::processPlayer MediaPlayer open fail, return nRet = -33\n"
        "OVAudioBackDispatcherMgr::processPlayer MediaPlayer open fail, return nRet = -34\n",
        output.text());
    EXPECT_EQ((Waits{idleWait, idleWait}), host_.waits());
    EXPECT_EQ(0u, host_.callCount("AudioDispatcher::recvAndPlayMediaData"));
    EXPECT_EQ(0, manager_->run());
    EXPECT_EQ(3u, host_.callCount("IMediaPlayer::close")) << "closed before every opening";
    EXPECT_EQ(3u, host_.callCount("IMediaPlayer::setDeviceInfo"));
    EXPECT_EQ((Waits{idleWait, idleWait, activeWait}), host_.waits());
}

TEST_F(OVAudioBackWorker, OutputFaultEndsTheIterationWithoutAWaitAndTheNextOneOpensAgain)
{
    addPlaying("s1");
    openPlayer();
    host_.script("AudioDispatcher::recvAndPlayMediaData", {{-1, true}});
    EXPECT_EQ(0, manager_->run());
    EXPECT_EQ((Calls{
                  "AudioDispatcher#1::isPlaying()",
                  "AudioDispatcher#1::isPlaying()",
                  "AudioDispatcher#1::recvAndPlayMediaData()",
                  "IMediaPlayer::close()",
              }),
              host_.calls());
    EXPECT_TRUE(host_.waits().empty());
    host_.clearCalls();
    EXPECT_EQ(0, manager_->run());
    EXPECT_EQ(1u, host_.callCount("IMediaPlayer::open"));
    EXPECT_EQ((Waits{activeWait}), host_.waits());
}

TEST_F(OVAudioBackWorker, SessionRemovedByTheReceivePassTakesNoPartInTheRtcpPass)
{
    addPlaying("s1");
    openPlayer();
    host_.script("AudioDispatcher::recvAndPlayMediaData", {-1});
    CapturedOutput output;
    EXPECT_EQ(0, manager_->run());
    EXPECT_EQ(receiveErased1, output.text());
    EXPECT_EQ(0u, host_.callCount("AudioDispatcher::recvAndSendRTCPData"));
    EXPECT_EQ((Waits{activeWait}), host_.waits());
}

// --- processPlayer ---

TEST_F(OVAudioBackWorker, ProcessPlayerHandlesTheOutputOutsideOfTheLock)
{
    addPlaying("s1");
    EXPECT_EQ(0, manager_->processPlayer());
    manager_->pauseAudio("s1");
    EXPECT_EQ(-9, manager_->processPlayer());
    int handled = 0;
    for (const FakeHost::Call& call : host_.callDetails())
    {
        if (call.name.compare(0, 12, "IMediaPlayer") == 0)
        {
            EXPECT_EQ(0, call.locksHeld) << call.text;
            ++handled;
        }
    }
    EXPECT_EQ(4, handled);
}

TEST_F(OVAudioBackWorker, ProcessPlayerAsksSessionsInKeyOrderUntilOnePlays)
{
    ASSERT_EQ(0, add("b"));
    ASSERT_EQ(0, add("a"));
    ASSERT_EQ(0, add("c"));
    manager_->startAudio("b");
    openPlayer();
    EXPECT_EQ(0, manager_->processPlayer());
    EXPECT_EQ((Calls{"AudioDispatcher#2::isPlaying()", "AudioDispatcher#1::isPlaying()"}), host_.calls());
}

TEST_F(OVAudioBackWorker, KeyOrderIsThatOfBytesWhateverSignCharactersHave)
{
    ASSERT_EQ(0, add("\xff"));
    ASSERT_EQ(0, add("\x80"));
    ASSERT_EQ(0, add("\x7f"));
    ASSERT_EQ(0, add("\x7f\x80"));
    host_.clearCalls();
    EXPECT_EQ(1, manager_->private_IsPauseAllAudio());
    EXPECT_EQ((Calls{"AudioDispatcher#3::isPlaying()", "AudioDispatcher#4::isPlaying()",
                     "AudioDispatcher#2::isPlaying()", "AudioDispatcher#1::isPlaying()"}),
              host_.calls());
}

TEST_F(OVAudioBackWorker, ProcessPlayerReportsThatNothingPlays)
{
    EXPECT_EQ(-9, manager_->processPlayer());
    ASSERT_EQ(0, add("s1"));
    EXPECT_EQ(-9, manager_->processPlayer());
    EXPECT_EQ(0u, host_.callCount("IMediaPlayer::close"));
}

TEST_F(OVAudioBackWorker, ProcessPlayerThatFailsToOpenLeavesTheOutputClosed)
{
    addPlaying("s1");
    host_.script("IMediaPlayer::open", {-33});
    CapturedOutput output;
    EXPECT_EQ(-9, manager_->processPlayer());
    output.text();
    EXPECT_FALSE(playerOpened());
}

TEST_F(OVAudioBackWorker, NoSessionPlaysInAnEmptyTable)
{
    EXPECT_EQ(1, manager_->private_IsPauseAllAudio());
    addPlaying("s1");
    EXPECT_EQ(0, manager_->private_IsPauseAllAudio());
    manager_->pauseAudio("s1");
    EXPECT_EQ(1, manager_->private_IsPauseAllAudio());
}

// --- the receive pass ---

TEST_F(OVAudioBackWorker, ReceivePassServesPlayingSessionsInKeyOrderAndSkipsPausedOnes)
{
    addPlaying("b");
    addPlaying("a");
    ASSERT_EQ(0, add("ab"));
    host_.clearCalls();
    EXPECT_EQ(0, manager_->recvAndPlayMediaData());
    EXPECT_EQ((Calls{
                  "AudioDispatcher#2::isPlaying()",
                  "AudioDispatcher#2::recvAndPlayMediaData()",
                  "AudioDispatcher#3::isPlaying()",
                  "AudioDispatcher#1::isPlaying()",
                  "AudioDispatcher#1::recvAndPlayMediaData()",
              }),
              host_.calls());
}

TEST_F(OVAudioBackWorker, ReceivePassKeepsSessionsWithToleratedCodes)
{
    addPlaying("s1");
    CapturedOutput output;
    for (int code : {0, -9, -211, -213})
    {
        host_.script("AudioDispatcher::recvAndPlayMediaData", {code});
        EXPECT_EQ(0, manager_->recvAndPlayMediaData()) << code;
        EXPECT_EQ(1, manager_->getSessionNum()) << code;
    }
    EXPECT_EQ("", output.text());
}

TEST_F(OVAudioBackWorker, ReceivePassRemovesSessionsWithAnyOtherCode)
{
    for (int code : {-1, 1, -6, -8, -10, -210, -212, -214})
    {
        addPlaying("s1");
        host_.script("AudioDispatcher::recvAndPlayMediaData", {code});
        CapturedOutput output;
        EXPECT_EQ(0, manager_->recvAndPlayMediaData()) << code;
        EXPECT_EQ(receiveErased1, output.text()) << code;
        EXPECT_EQ(0, manager_->getSessionNum()) << code;
        EXPECT_EQ(0u, host_.callCount("AudioDispatcher::stop")) << "removed ones are released, not stopped";
    }
}

TEST_F(OVAudioBackWorker, ReceivePassRemovesAllItsFailuresAfterTheWalk)
{
    for (const char* session : {"s1", "s2", "s3"})
    {
        addPlaying(session);
    }
    host_.script("AudioDispatcher#1::recvAndPlayMediaData", {-1});
    host_.script("AudioDispatcher#3::recvAndPlayMediaData", {-2});
    CapturedOutput output;
    EXPECT_EQ(0, manager_->recvAndPlayMediaData());
    EXPECT_EQ(receiveErased2, output.text());
    EXPECT_TRUE(manager_->findSession("s2"));
    EXPECT_EQ(1, manager_->getSessionNum());
    const Calls calls = host_.calls();
    const auto lastReceive =
        std::find(calls.begin(), calls.end(), "AudioDispatcher#3::recvAndPlayMediaData()");
    EXPECT_NE(calls.end(), std::find(lastReceive, calls.end(), "AudioDispatcher#1::~AudioDispatcher()"));
}

TEST_F(OVAudioBackWorker, OutputFaultInTheMiddleOfAPassClosesTheOutputAndRemovesNobody)
{
    for (const char* session : {"s1", "s2", "s3"})
    {
        addPlaying(session);
    }
    openPlayer();
    host_.script("AudioDispatcher#1::recvAndPlayMediaData", {-1});
    host_.script("AudioDispatcher#2::recvAndPlayMediaData", {{-2, true}});
    CapturedOutput output;
    EXPECT_EQ(-9, manager_->recvAndPlayMediaData());
    EXPECT_EQ("", output.text());
    EXPECT_EQ(3, manager_->getSessionNum());
    EXPECT_EQ(0u, host_.callCount("AudioDispatcher#3::recvAndPlayMediaData")) << "the pass ends at once";
    EXPECT_EQ(1u, host_.callCount("IMediaPlayer::close"));
    EXPECT_FALSE(playerOpened());
}

TEST_F(OVAudioBackWorker, OutputFaultClosesTheOutputUnderTheLock)
{
    addPlaying("s1");
    openPlayer();
    host_.script("AudioDispatcher::recvAndPlayMediaData", {{-1, true}});
    EXPECT_EQ(-9, manager_->recvAndPlayMediaData());
    EXPECT_EQ("IMediaPlayer::close()", host_.callDetails().back().text);
    EXPECT_EQ(1, host_.callDetails().back().locksHeld);
}

TEST_F(OVAudioBackWorker, OutputFaultWithAToleratedCodeEndsThePassToo)
{
    addPlaying("s1");
    openPlayer();
    host_.script("AudioDispatcher::recvAndPlayMediaData", {{-211, true}});
    EXPECT_EQ(-9, manager_->recvAndPlayMediaData());
    EXPECT_EQ(1u, host_.callCount("IMediaPlayer::close"));
}

TEST_F(OVAudioBackWorker, OutputFaultOfASuccessfulSessionStrikesAtTheNextResultOfThePass)
{
    for (const char* session : {"s1", "s2", "s3"})
    {
        addPlaying(session);
    }
    openPlayer();
    host_.script("AudioDispatcher#1::recvAndPlayMediaData", {{0, true}});
    host_.script("AudioDispatcher#3::recvAndPlayMediaData", {-213});
    EXPECT_EQ(-9, manager_->recvAndPlayMediaData());
    EXPECT_EQ(1u, host_.callCount("AudioDispatcher#2::recvAndPlayMediaData"));
    EXPECT_EQ(3, manager_->getSessionNum());
}

TEST_F(OVAudioBackWorker, OutputFaultWithoutAnyResultIsForgottenWithThePass)
{
    addPlaying("s1");
    openPlayer();
    host_.script("AudioDispatcher::recvAndPlayMediaData", {{0, true}, {-211, false}});
    EXPECT_EQ(0, manager_->recvAndPlayMediaData());
    EXPECT_EQ(0, manager_->recvAndPlayMediaData());
    EXPECT_EQ(0u, host_.callCount("IMediaPlayer::close"));
}

// --- the RTCP pass ---

TEST_F(OVAudioBackWorker, RtcpPassKeepsSessionsWithToleratedCodes)
{
    addPlaying("s1");
    CapturedOutput output;
    for (int code : {0, -9, -211, -213})
    {
        host_.script("AudioDispatcher::recvAndSendRTCPData", {code});
        EXPECT_EQ(0, manager_->recvAndSendRTCPData()) << code;
        EXPECT_EQ(1, manager_->getSessionNum()) << code;
    }
    EXPECT_EQ("", output.text());
}

TEST_F(OVAudioBackWorker, RtcpPassRemovesSessionsWithAnyOtherCode)
{
    for (int code : {-1, 1, -6, -210, -212})
    {
        addPlaying("s1");
        host_.script("AudioDispatcher::recvAndSendRTCPData", {code});
        CapturedOutput output;
        EXPECT_EQ(0, manager_->recvAndSendRTCPData()) << code;
        EXPECT_EQ(rtcpErased1, output.text()) << code;
        EXPECT_EQ(0, manager_->getSessionNum()) << code;
        EXPECT_EQ(0u, host_.callCount("AudioDispatcher::stop"));
    }
}

TEST_F(OVAudioBackWorker, RtcpPassSkipsPausedSessionsAndCountsItsFailures)
{
    addPlaying("s1");
    ASSERT_EQ(0, add("s2"));
    addPlaying("s3");
    host_.always("AudioDispatcher::recvAndSendRTCPData", -1);
    CapturedOutput output;
    EXPECT_EQ(0, manager_->recvAndSendRTCPData());
    EXPECT_EQ(rtcpErased2, output.text());
    EXPECT_TRUE(manager_->findSession("s2"));
    EXPECT_EQ(0u, host_.callCount("AudioDispatcher#2::recvAndSendRTCPData"));
}

// --- cost ---

TEST_F(OVAudioBackWorker, PassThatRemovesNobodyAllocatesNothing)
{
    for (int i = 0; i < 100; ++i)
    {
        addPlaying("session with a name too long to be kept in place " + std::to_string(i));
    }
    openPlayer();
    host_.recordCalls(false);
    const AllocationCounter counter;
    manager_->run();
    EXPECT_EQ(0u, counter.count());
}

TEST_F(OVAudioBackWorker, PassAsksEachSessionOnce)
{
    const std::size_t sessions = 50;
    for (std::size_t i = 0; i < sessions; ++i)
    {
        addPlaying("s" + std::to_string(i));
    }
    host_.clearCalls();
    manager_->recvAndPlayMediaData();
    EXPECT_EQ(sessions, host_.callCount("AudioDispatcher::isPlaying"));
    EXPECT_EQ(sessions, host_.callCount("AudioDispatcher::recvAndPlayMediaData"));
}
