#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "tests/audioback/ManagerFixture.h"
#include "tests/fakehost/FakeMediaPlayer.h"

namespace
{

class OVAudioBackThread : public ManagerWithPlayer
{
protected:
    ~OVAudioBackThread() noexcept override {}

    // The order in which the table releases its dispatchers is not specified.
    Calls callsButDestructions() const
    {
        Calls calls = host_.calls();
        calls.erase(
            std::remove_if(calls.begin(), calls.end(),
                           [](const std::string& call) { return call.find('~') != std::string::npos; }),
            calls.end());
        return calls;
    }
};

void reportAtExit()
{
    const FakeHost& host = FakeHost::instance();
    std::fprintf(stderr,
                 "stopped %zu threads, %zu sessions, %s; living %d threads, %d dispatchers, %d outputs",
                 host.callCount("GThread::stop"), host.callCount("AudioDispatcher::stop"),
                 host.callCount("IMediaPlayer::close") == 2 ? "closed" : "not closed", host.living("GThread"),
                 host.living("AudioDispatcher"), host.living("IMediaPlayer"));
}

// A worker that serves a session with an open output; no handle is kept.
void leaveRunning()
{
    const SafePointer<OVAudioBackDispatcherMgr> manager = OVAudioBackDispatcherMgr::getInstance();
    manager->setMediaPlayer(SafePointer<IMediaPlayer>(new FakeMediaPlayer));
    manager->initSession("s1", "track", SubMediaInfo(), 1364);
    manager->startAudio("s1");
    manager->start();
    FakeHost::instance().waitForRuns(2);
}

}  // namespace

TEST_F(OVAudioBackThread, StartRunsTheWorkerAndPrintsIt)
{
    host_.runThreads(false);
    CapturedOutput output;
    EXPECT_FALSE(manager_->isRunning());
    EXPECT_EQ(0, manager_->start());
    EXPECT_EQ("OVAudioInterPhoneMgr start Success!\n", output.text());
    EXPECT_TRUE(manager_->isRunning());
    EXPECT_EQ(1u, host_.callCount("GThread::start"));
}

TEST_F(OVAudioBackThread, StartOfARunningWorkerSucceedsSilently)
{
    host_.runThreads(false);
    {
        CapturedOutput first;
        manager_->start();
    }
    CapturedOutput output;
    EXPECT_EQ(0, manager_->start());
    EXPECT_EQ("", output.text());
    EXPECT_EQ(1u, host_.callCount("GThread::start"));
}

TEST_F(OVAudioBackThread, StartWithoutAThreadIsReportedAndMayBeRetried)
{
    host_.runThreads(false);
    host_.script("GThread::start", {0});
    CapturedOutput output;
    EXPECT_EQ(-12, manager_->start());
    EXPECT_FALSE(manager_->isRunning());
    EXPECT_EQ(0, manager_->start());
    EXPECT_EQ(
        "OVAudioInterPhoneMgr start Fail!\n"
        "OVAudioInterPhoneMgr start Success!\n",
        output.text());
}

TEST_F(OVAudioBackThread, WorkerServesRepeatedlyUntilStop)
{
    host_.recordCalls(false);
    CapturedOutput output;
    manager_->initSession("s1", "track", track_, 1364);
    manager_->startAudio("s1");
    ASSERT_EQ(0, manager_->start());
    EXPECT_TRUE(host_.waitForRuns(5));
    manager_->stop();
    EXPECT_FALSE(manager_->isRunning());
    EXPECT_FALSE(playerOpened());
    EXPECT_EQ(0, manager_->getSessionNum());
}

TEST_F(OVAudioBackThread, WorkerMayBeStartedAgainAfterStop)
{
    host_.recordCalls(false);
    CapturedOutput output;
    ASSERT_EQ(0, manager_->start());
    EXPECT_TRUE(host_.waitForRuns(1));
    manager_->stop();
    host_.reset();
    host_.recordCalls(false);
    ASSERT_EQ(0, manager_->start());
    EXPECT_TRUE(host_.waitForRuns(1));
    manager_->stop();
}

TEST_F(OVAudioBackThread, StopOfARunningManagerStopsThreadThenSessionsThenOutput)
{
    host_.runThreads(false);
    {
        CapturedOutput first;
        manager_->start();
    }
    addPlaying("b");
    addPlaying("a");
    openPlayer();
    CapturedOutput output;
    manager_->stop();
    EXPECT_EQ("~OVAudioBackDispatcherMgr::stop~\n", output.text());
    EXPECT_EQ((Calls{
                  "GThread::stop()",
                  "AudioDispatcher#2::stop()",
                  "AudioDispatcher#1::stop()",
                  "IMediaPlayer::close()",
              }),
              callsButDestructions());
    for (const FakeHost::Call& call : host_.callDetails())
    {
        EXPECT_EQ(call.name.compare(0, 15, "AudioDispatcher") == 0 ? 1 : 0, call.locksHeld) << call.text;
    }
    EXPECT_EQ(0, manager_->getSessionNum());
}

TEST_F(OVAudioBackThread, StopOfAManagerThatNeverRanStopsEverySessionAndClosesAnOpenOutput)
{
    addPlaying("s1");
    ASSERT_EQ(0, add("s2"));
    openPlayer();
    CapturedOutput output;
    manager_->stop();
    EXPECT_EQ((Calls{
                  "AudioDispatcher#1::stop()",
                  "AudioDispatcher#2::stop()",
                  "IMediaPlayer::close()",
              }),
              callsButDestructions());
    EXPECT_EQ(0, host_.living("AudioDispatcher"));
}

TEST_F(OVAudioBackThread, StopLeavesAClosedOutputAlone)
{
    CapturedOutput output;
    manager_->stop();
    manager_->stop();
    EXPECT_TRUE(host_.calls().empty());
    EXPECT_EQ("~OVAudioBackDispatcherMgr::stop~\n~OVAudioBackDispatcherMgr::stop~\n", output.text());
}

TEST(OVAudioBackFirst, ConcurrentFirstCallsYieldOneManagerWithOneThreadThatDoesNotRun)
{
    std::vector<std::thread> threads;
    std::vector<const void*> found(4);
    for (const void*& result : found)
    {
        threads.emplace_back([&result] { result = OVAudioBackDispatcherMgr::getInstance().operator->(); });
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }
    EXPECT_EQ(1u, std::set<const void*>(found.begin(), found.end()).size());
    EXPECT_EQ(1, FakeHost::instance().living("GThread"));
    EXPECT_FALSE(OVAudioBackDispatcherMgr::getInstance()->isRunning());
}

TEST(OVAudioBackAtExit, TheManagerStopsItsRunningThreadItsSessionsAndItsOutput)
{
    EXPECT_EXIT(
        {
            // Registered before the manager is made, so that it runs when the manager is gone.
            std::atexit(reportAtExit);
            leaveRunning();
            std::exit(0);
        },
        testing::ExitedWithCode(0),
        "stopped 1 threads, 1 sessions, closed; living 0 threads, 0 dispatchers, 0 outputs");
}
