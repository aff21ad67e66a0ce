// A misuse found by the release of a session's dispatcher is thrown by every operation that removes sessions.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <ostream>
#include <string>

#include "tests/audioback/ManagerFixture.h"
#include "tests/fakehost/FakeAudioDispatchers.h"
#include "tests/fakehost/ForeignRecord.h"

namespace
{

/// One operation that removes the sessions "s1", "s2" and "s3", of which "s2" cannot be released.
struct Removal
{
    const char* name;
    std::function<void(OVAudioBackDispatcherMgr&)> remove;
    /// Whether it needs playing sessions whose dispatchers fail, and in which operation.
    const char* failingOperation;
    /// Its output although it does not complete.
    const char* printed;
};

class OVAudioBackMisuse : public ManagerWithPlayer
{
protected:
    ~OVAudioBackMisuse() noexcept override {}
};

class OVAudioBackRemoval : public OVAudioBackMisuse, public testing::WithParamInterface<Removal>
{
protected:
    ~OVAudioBackRemoval() noexcept override {}

    void removeAll()
    {
        GetParam().remove(*manager_.operator->());
    }
};

}  // namespace

TEST_F(OVAudioBackMisuse, OfOneSessionIsThrownByStopAudioAndTheSessionIsGone)
{
    ASSERT_EQ(0, add("s1"));
    ASSERT_EQ(0, add("s2"));
    AudioDispatcher* const bad = FakeAudioDispatchers::find(1);
    {
        const ForeignRecord foreign(bad);
        CapturedOutput output;
        EXPECT_THROW(manager_->stopAudio("s1"), OVRuntimeError);
        EXPECT_EQ("________________OVAudioBackDispatcherMgr::stopAudio\n", output.text());
        EXPECT_EQ(0, FakeHost::locksHeldHere()) << "the manager's lock was given back";
        EXPECT_FALSE(manager_->findSession("s1"));
        EXPECT_TRUE(manager_->findSession("s2"));
    }
    ForeignRecord::releaseAbandoned(bad);
}

TEST_P(OVAudioBackRemoval, ThrowsTheMisuseAndIsFinishedByTheNextCall)
{
    for (const char* session : {"s1", "s2", "s3"})
    {
        ASSERT_EQ(0, add(session));
        if (GetParam().failingOperation != nullptr)
        {
            manager_->startAudio(session);
        }
    }
    if (GetParam().failingOperation != nullptr)
    {
        host_.always(std::string("AudioDispatcher::") + GetParam().failingOperation, -1);
    }
    AudioDispatcher* const bad = FakeAudioDispatchers::find(2);
    {
        const ForeignRecord foreign(bad);
        CapturedOutput output;
        try
        {
            removeAll();
            ADD_FAILURE() << "nothing was thrown";
        }
        catch (const OVRuntimeError& error)
        {
            EXPECT_STREQ("not valid pointer in dec_reference", error.what());
        }
        EXPECT_EQ(GetParam().printed, output.text());
        EXPECT_TRUE(foreign.isLocked()) << "such a record is not touched again";
        EXPECT_EQ(0, FakeHost::locksHeldHere()) << "the manager's lock was given back";
        EXPECT_FALSE(manager_->findSession("s1"));
        EXPECT_FALSE(manager_->findSession("s2")) << "its session is gone nevertheless";
        EXPECT_TRUE(manager_->findSession("s3")) << "those behind it stay";
        removeAll();
        EXPECT_EQ(0, manager_->getSessionNum());
    }
    ForeignRecord::releaseAbandoned(bad);
}

INSTANTIATE_TEST_SUITE_P(
    By, OVAudioBackRemoval,
    testing::Values(Removal{"clearAllSession",
                            [](OVAudioBackDispatcherMgr& manager) { manager.clearAllSession(); }, nullptr,
                            ""},
                    Removal{"clearStopSession",
                            [](OVAudioBackDispatcherMgr& manager) { manager.clearStopSession(); }, nullptr,
                            ""},
                    Removal{"stop", [](OVAudioBackDispatcherMgr& manager) { manager.stop(); }, nullptr,
                            "~OVAudioBackDispatcherMgr::stop~\n"},
                    Removal{"recvAndPlayMediaData",
                            [](OVAudioBackDispatcherMgr& manager) { manager.recvAndPlayMediaData(); },
                            "recvAndPlayMediaData", ""},
                    Removal{"recvAndSendRTCPData",
                            [](OVAudioBackDispatcherMgr& manager) { manager.recvAndSendRTCPData(); },
                            "recvAndSendRTCPData", ""}),
    [](const testing::TestParamInfo<Removal>& removal) { return std::string(removal.param.name); });

TEST_F(OVAudioBackMisuse, LeavesTheOutputToTheNextStop)
{
    addPlaying("s1");
    openPlayer();
    AudioDispatcher* const bad = FakeAudioDispatchers::find(1);
    {
        const ForeignRecord foreign(bad);
        CapturedOutput output;
        EXPECT_THROW(manager_->stop(), OVRuntimeError);
        EXPECT_EQ(0u, host_.callCount("IMediaPlayer::close"));
        manager_->stop();
        EXPECT_EQ(1u, host_.callCount("IMediaPlayer::close"));
    }
    ForeignRecord::releaseAbandoned(bad);
}

TEST_F(OVAudioBackMisuse, IsThrownByTheManagersEndWhichReleasesTheOtherSessions)
{
    EXPECT_EXIT(
        {
            add("s1");
            add("s2");
            add("s3");
            const ForeignRecord foreign(FakeAudioDispatchers::find(2));
            try
            {
                // As its last handle does it.
                manager_.operator->()->~OVAudioBackDispatcherMgr();
            }
            catch (const OVRuntimeError& error)
            {
                std::fprintf(stderr, "%d dispatchers left, %s", host_.living("AudioDispatcher"),
                             error.what());
                std::_Exit(FakeHost::locksHeldHere());
            }
            std::_Exit(100);
        },
        testing::ExitedWithCode(0), "1 dispatchers left, not valid pointer in dec_reference");
}
