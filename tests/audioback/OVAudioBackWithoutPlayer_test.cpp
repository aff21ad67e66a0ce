// A manager that was never given an output; in a program of its own, because an output cannot be taken back.
#include <gtest/gtest.h>

#include <string>

#include "tests/audioback/ManagerFixture.h"

namespace
{

class OVAudioBackWithoutPlayer : public ManagerFixture
{
protected:
    ~OVAudioBackWithoutPlayer() noexcept override {}
};

}  // namespace

TEST(OVAudioBackCreation, MakesOneNamedThreadThatDoesNotRunAndNothingElse)
{
    FakeHost& host = FakeHost::instance();
    const SafePointer<OVAudioBackDispatcherMgr> manager = OVAudioBackDispatcherMgr::getInstance();
    EXPECT_EQ(1, host.living("GThread"));
    EXPECT_FALSE(manager->isRunning());
    EXPECT_EQ(0, manager->getSessionNum());
    EXPECT_EQ(1440, manager->getMTUParam().getMTUValue());
    // Manager, thread, and what the thread keeps: body and two hooks.
    EXPECT_EQ(5u, host.recordsInUse());
}

TEST_F(OVAudioBackWithoutPlayer, StartIsRefusedSilentlyAndTheThreadStaysStopped)
{
    CapturedOutput output;
    EXPECT_EQ(-6, manager_->start());
    EXPECT_EQ("", output.text());
    EXPECT_FALSE(manager_->isRunning());
    EXPECT_EQ(0u, host_.callCount("GThread::start"));
}

TEST_F(OVAudioBackWithoutPlayer, IterationFailsWithoutAWait)
{
    EXPECT_EQ(-1, manager_->run());
    EXPECT_TRUE(host_.calls().empty());
    EXPECT_EQ(-6, manager_->processPlayer());
}

TEST_F(OVAudioBackWithoutPlayer, IterationFailsAlsoWhenASessionPlays)
{
    addPlaying("s1");
    EXPECT_EQ(-1, manager_->run());
    EXPECT_TRUE(host_.calls().empty());
}

TEST_F(OVAudioBackWithoutPlayer, EncoderTypeIsOnlyKept)
{
    EXPECT_EQ(0, manager_->setEncoderType(8));
    EXPECT_TRUE(host_.calls().empty());
}

TEST_F(OVAudioBackWithoutPlayer, SessionIsCreatedWithoutOutput)
{
    EXPECT_EQ(0, add("s1"));
    EXPECT_EQ("AudioDispatcher#1::AudioDispatcher(no player)", host_.calls().front());
    EXPECT_EQ(1, manager_->getSessionNum());
}

TEST_F(OVAudioBackWithoutPlayer, StopStopsEverySession)
{
    ASSERT_EQ(0, add("s1"));
    host_.clearCalls();
    CapturedOutput output;
    manager_->stop();
    EXPECT_EQ("~OVAudioBackDispatcherMgr::stop~\n", output.text());
    EXPECT_EQ((Calls{"AudioDispatcher#1::stop()", "AudioDispatcher#1::~AudioDispatcher()"}), host_.calls());
    EXPECT_EQ(0, manager_->getSessionNum());
}
