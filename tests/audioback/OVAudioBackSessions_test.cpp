#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "tests/audioback/ManagerFixture.h"

namespace
{

class OVAudioBackSessions : public ManagerWithPlayer
{
protected:
    ~OVAudioBackSessions() noexcept override {}
};

}  // namespace

TEST_F(OVAudioBackSessions, InitSessionCreatesADispatcherOnTheOutputAndPrintsTheCount)
{
    CapturedOutput output;
    EXPECT_EQ(0, manager_->initSession("s1", "track", track_, 1200));
    EXPECT_EQ(0, manager_->initSession("s2", "track", track_, 1364));
    EXPECT_EQ(
        "OVAudioBackDispatcherMgr::initSession, after adding, session num is:1\n"
        "OVAudioBackDispatcherMgr::initSession, after adding, session num is:2\n",
        output.text());
    EXPECT_EQ((Calls{
                  "AudioDispatcher#1::AudioDispatcher(player)",
                  "AudioDispatcher#1::initRTBBuilder(trackID=2, 1200)",
                  "AudioDispatcher#2::AudioDispatcher(player)",
                  "AudioDispatcher#2::initRTBBuilder(trackID=2, 1364)",
              }),
              host_.calls());
    EXPECT_EQ(2, manager_->getSessionNum());
}

TEST_F(OVAudioBackSessions, SecondInitOfOneSessionIsRefusedSilently)
{
    ASSERT_EQ(0, add("s1"));
    host_.clearCalls();
    CapturedOutput output;
    EXPECT_EQ(-6, manager_->initSession("s1", track_.trackId, track_, 1364));
    EXPECT_EQ("", output.text());
    EXPECT_EQ(1, manager_->getSessionNum());
    EXPECT_TRUE(host_.calls().empty());
}

TEST_F(OVAudioBackSessions, AllSessionsShareOneTrackId)
{
    CapturedOutput output;
    ASSERT_EQ(0, manager_->initSession("s1", "A", track_, 1364));
    EXPECT_EQ(-6, manager_->initSession("s2", "B", track_, 1364));
    EXPECT_FALSE(manager_->findSession("s2"));
    EXPECT_EQ(0, manager_->stopAudio("s1"));
    EXPECT_EQ(0, manager_->initSession("s2", "B", track_, 1364)) << "an empty table takes any track id";
    EXPECT_EQ(-6, manager_->initSession("s3", "A", track_, 1364));
    EXPECT_EQ(0, manager_->initSession("s3", "B", track_, 1364));
}

TEST_F(OVAudioBackSessions, FailingDispatcherLeavesTheTableUnchangedAndItsCodeGoesToTheCaller)
{
    ASSERT_EQ(0, add("s1"));
    host_.script("AudioDispatcher::initRTBBuilder", {-505});
    CapturedOutput output;
    EXPECT_EQ(-505, manager_->initSession("s2", track_.trackId, track_, 1364));
    EXPECT_EQ("", output.text());
    EXPECT_EQ(1, manager_->getSessionNum());
    EXPECT_EQ(1, host_.living("AudioDispatcher"));
}

TEST_F(OVAudioBackSessions, FailingDispatcherDoesNotMakeItsTrackIdTheSharedOne)
{
    host_.script("AudioDispatcher::initRTBBuilder", {-505});
    CapturedOutput output;
    EXPECT_EQ(-505, manager_->initSession("s1", "A", track_, 1364));
    EXPECT_EQ(0, manager_->initSession("s1", "B", track_, 1364));
    EXPECT_EQ(0, manager_->initSession("s2", "B", track_, 1364));
}

TEST_F(OVAudioBackSessions, EveryNthFailureOfASetupLeaksNothing)
{
    const std::size_t records = host_.recordsInUse();
    int failures = 0;
    for (int nth = 1;; ++nth)
    {
        host_.failNthCall(nth, -500 - nth);
        int result = add("s1");
        if (result == 0)
        {
            result = manager_->addSessionConnection("s1", connection());
        }
        EXPECT_EQ(nth == 1 ? 0 : 1, manager_->getSessionNum());
        manager_->clearAllSession();
        EXPECT_EQ(records, host_.recordsInUse());
        EXPECT_EQ(0, host_.living("AudioDispatcher"));
        EXPECT_EQ(0, host_.living("IConnection"));
        if (!host_.failureStruck())
        {
            EXPECT_EQ(0, result);
            break;
        }
        ASSERT_LE(nth, 2);
        EXPECT_EQ(-500 - nth, result);
        ++failures;
    }
    EXPECT_EQ(2, failures);
}

TEST_F(OVAudioBackSessions, UnknownSessionIsRefusedByEveryOperationAndNothingChanges)
{
    ASSERT_EQ(0, add("s1"));
    host_.clearCalls();
    bool state = true;
    int ssrc = 77;
    CapturedOutput output;
    EXPECT_EQ(-6, manager_->addSessionConnection("s2", connection()));
    EXPECT_EQ(-6, manager_->startAudio("s2"));
    EXPECT_EQ(-6, manager_->pauseAudio("s2"));
    EXPECT_EQ(-6, manager_->stopAudio("s2"));
    EXPECT_EQ(-6, manager_->getConnetionState("s2", state));
    EXPECT_EQ(-6, manager_->getTrackSSRC("s2", ssrc));
    EXPECT_FALSE(manager_->findSession("s2"));
    EXPECT_EQ("", output.text());
    EXPECT_TRUE(state);
    EXPECT_EQ(77, ssrc);
    EXPECT_EQ(1, manager_->getSessionNum());
    EXPECT_TRUE(host_.calls().empty());
}

TEST_F(OVAudioBackSessions, AddSessionConnectionPassesTheDispatchersResultOn)
{
    ASSERT_EQ(0, add("s1"));
    EXPECT_EQ(0, manager_->addSessionConnection("s1", connection(2)));
    EXPECT_EQ("AudioDispatcher#1::setConnection(kind 2)", host_.calls().back());
    host_.script("AudioDispatcher::setConnection", {-506});
    EXPECT_EQ(-506, manager_->addSessionConnection("s1", connection(2)));
    EXPECT_TRUE(manager_->findSession("s1"));
}

TEST_F(OVAudioBackSessions, StartAndPauseSucceedWhateverTheDispatcherReports)
{
    ASSERT_EQ(0, add("s1"));
    host_.clearCalls();
    host_.always("AudioDispatcher::play", -507);
    host_.always("AudioDispatcher::pause", -508);
    EXPECT_EQ(0, manager_->startAudio("s1"));
    EXPECT_EQ(0, manager_->pauseAudio("s1"));
    EXPECT_EQ((Calls{"AudioDispatcher#1::play()", "AudioDispatcher#1::pause()"}), host_.calls());
}

TEST_F(OVAudioBackSessions, StopAudioRemovesTheSessionWithoutStoppingItsDispatcher)
{
    ASSERT_EQ(0, add("s1"));
    ASSERT_EQ(0, add("s2"));
    host_.clearCalls();
    CapturedOutput output;
    EXPECT_EQ(0, manager_->stopAudio("s1"));
    EXPECT_EQ("________________OVAudioBackDispatcherMgr::stopAudio\n", output.text());
    EXPECT_EQ((Calls{"AudioDispatcher#1::~AudioDispatcher()"}), host_.calls());
    EXPECT_EQ(1, manager_->getSessionNum());
    EXPECT_FALSE(manager_->findSession("s1"));
    EXPECT_TRUE(manager_->findSession("s2"));
}

TEST_F(OVAudioBackSessions, ConnectionStateIsThePlayingState)
{
    ASSERT_EQ(0, add("s1"));
    bool state = true;
    EXPECT_EQ(0, manager_->getConnetionState("s1", state));
    EXPECT_FALSE(state);
    manager_->startAudio("s1");
    EXPECT_EQ(0, manager_->getConnetionState("s1", state));
    EXPECT_TRUE(state);
    manager_->pauseAudio("s1");
    EXPECT_EQ(0, manager_->getConnetionState("s1", state));
    EXPECT_FALSE(state);
    host_.script("AudioDispatcher::play", {-507});
    manager_->startAudio("s1");
    EXPECT_EQ(0, manager_->getConnetionState("s1", state));
    EXPECT_FALSE(state) << "the manager keeps no state of its own";
}

TEST_F(OVAudioBackSessions, GetTrackSsrcPassesTheDispatchersResultOn)
{
    ASSERT_EQ(0, add("s1"));
    int ssrc = 0;
    EXPECT_EQ(0, manager_->getTrackSSRC("s1", ssrc));
    EXPECT_EQ(2001, ssrc);
    host_.script("AudioDispatcher::getTrackSSRC", {-504});
    ssrc = 5;
    EXPECT_EQ(-504, manager_->getTrackSSRC("s1", ssrc));
    EXPECT_EQ(5, ssrc);
}

TEST_F(OVAudioBackSessions, ClearAllSessionRemovesEverySessionAndStopsNone)
{
    addPlaying("s1");
    ASSERT_EQ(0, add("s2"));
    host_.clearCalls();
    CapturedOutput output;
    manager_->clearAllSession();
    EXPECT_EQ("", output.text());
    EXPECT_EQ(0, manager_->getSessionNum());
    EXPECT_EQ(0, host_.living("AudioDispatcher"));
    EXPECT_EQ(0u, host_.callCount("AudioDispatcher::stop"));
    manager_->clearAllSession();
    EXPECT_EQ(0, manager_->getSessionNum());
}

TEST_F(OVAudioBackSessions, ClearStopSessionRemovesThoseThatDoNotPlayAndStopsNone)
{
    addPlaying("s1");
    ASSERT_EQ(0, add("s2"));
    addPlaying("s3");
    manager_->pauseAudio("s3");
    addPlaying("s4");
    CapturedOutput output;
    manager_->clearStopSession();
    EXPECT_EQ("", output.text());
    EXPECT_TRUE(manager_->findSession("s1"));
    EXPECT_FALSE(manager_->findSession("s2"));
    EXPECT_FALSE(manager_->findSession("s3"));
    EXPECT_TRUE(manager_->findSession("s4"));
    EXPECT_EQ(0u, host_.callCount("AudioDispatcher::stop"));
}

TEST_F(OVAudioBackSessions, EveryOperationOnSessionsTakesTheLockOnceUnderTheUnitsName)
{
    ASSERT_EQ(0, add("s1"));
    const SafePointer<IConnection> client = connection();
    bool state = false;
    int ssrc = 0;
    const std::map<std::string, std::function<void()>> operations = {
        {"initSession", [&] { manager_->initSession("s2", track_.trackId, track_, 1364); }},
        {"addSessionConnection", [&] { manager_->addSessionConnection("s1", client); }},
        {"findSession", [&] { manager_->findSession("s1"); }},
        {"startAudio", [&] { manager_->startAudio("s1"); }},
        {"pauseAudio", [&] { manager_->pauseAudio("s1"); }},
        {"stopAudio", [&] { manager_->stopAudio("s2"); }},
        {"getConnetionState", [&] { manager_->getConnetionState("s1", state); }},
        {"getTrackSSRC", [&] { manager_->getTrackSSRC("s1", ssrc); }},
        {"getSessionNum", [&] { manager_->getSessionNum(); }},
        {"clearAllSession", [&] { manager_->clearAllSession(); }},
        {"clearStopSession", [&] { manager_->clearStopSession(); }},
        {"recvAndPlayMediaData", [&] { manager_->recvAndPlayMediaData(); }},
        {"recvAndSendRTCPData", [&] { manager_->recvAndSendRTCPData(); }},
        {"processPlayer", [&] { manager_->processPlayer(); }},
        {"stop", [&] { manager_->stop(); }},
    };
    for (const auto& operation : operations)
    {
        CapturedOutput output;
        host_.clearCalls();
        host_.recordLocks(true);
        operation.second();
        host_.recordLocks(false);
        EXPECT_EQ(1u, host_.callCount("OVMutex::Lock")) << operation.first;
        for (const FakeHost::Call& call : host_.callDetails())
        {
            if (call.name == "OVMutex::Lock")
            {
                EXPECT_EQ(0u, call.text.find("OVMutex::Lock(OVAudioBackDispatcherMgr, ")) << operation.first;
            }
            else if (call.name.compare(0, 15, "AudioDispatcher") == 0)
            {
                EXPECT_EQ(1, call.locksHeld) << operation.first << ": " << call.text;
            }
        }
        EXPECT_EQ(0, FakeHost::locksHeldHere()) << operation.first;
    }
}

TEST_F(OVAudioBackSessions, SettingsTakeNoLock)
{
    host_.recordLocks(true);
    manager_->setDeviceInfoEx(DeviceInfoEx());
    manager_->setDeviceExAbility(DeviceExAbility());
    manager_->setThirdPlatType(3);
    manager_->setMTUParam(manager_->getMTUParam());
    manager_->setEncoderType(8);
    host_.recordLocks(false);
    EXPECT_EQ(0u, host_.callCount("OVMutex::Lock"));
}

TEST_F(OVAudioBackSessions, SessionsMayComeAndGoFromManyThreadsWhileTheWorkerServes)
{
    host_.recordCalls(false);
    CapturedOutput output;
    ASSERT_EQ(0, manager_->start());
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
    {
        threads.emplace_back(
            [this, i]
            {
                const std::string session = "s" + std::to_string(i);
                for (int iteration = 0; iteration < 50; ++iteration)
                {
                    EXPECT_EQ(0, manager_->initSession(session, "track", track_, 1364));
                    EXPECT_EQ(0, manager_->startAudio(session));
                    bool state = false;
                    EXPECT_EQ(0, manager_->getConnetionState(session, state));
                    EXPECT_EQ(0, manager_->pauseAudio(session));
                    EXPECT_EQ(0, manager_->stopAudio(session));
                }
            });
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }
    EXPECT_TRUE(host_.waitForRuns(3));
    manager_->stop();
    EXPECT_FALSE(manager_->isRunning());
    EXPECT_EQ(0, host_.living("AudioDispatcher"));
}
