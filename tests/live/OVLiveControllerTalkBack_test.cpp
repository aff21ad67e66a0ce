#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/live/LiveControllerFixture.h"

namespace
{

using Calls = std::vector<std::string>;

class OVLiveControllerTalkBack : public LiveControllerFixture
{
protected:
    ~OVLiveControllerTalkBack() noexcept override {}

    int setupTalkBack(int kind = 1)
    {
        CapturedOutput output;
        return controller_->setup(session_, talkBack_, connection(kind));
    }
};

}  // namespace

TEST_F(OVLiveControllerTalkBack, EmptyTrackIdGoesToTheTalkBackManagerUntilASetupOfItsTrack)
{
    EXPECT_EQ(-6, controller_->play(session_, ""));
    EXPECT_EQ(-6, controller_->pause(session_, ""));
    EXPECT_EQ(-6, controller_->stop(session_, ""));
    int ssrc = 0;
    EXPECT_EQ(-6, controller_->getTrackSSRC(session_, "", ssrc));
    EXPECT_TRUE(host_.calls().empty());
    ASSERT_EQ(0, setupTalkBack());
    host_.clearCalls();
    controller_->play(session_, "");
    EXPECT_EQ((Calls{"RTPStreamDispatcherMgr::play(12/0, session, )"}), host_.calls());
}

TEST_F(OVLiveControllerTalkBack, ItsTrackIsOrdinaryUntilItsSetup)
{
    controller_->play(session_, talkBack_);
    EXPECT_EQ((Calls{"RTPStreamDispatcherMgr::play(12/0, session, trackID=2)"}), host_.calls());
}

TEST_F(OVLiveControllerTalkBack, SetupCreatesASessionAndAttachesTheConnection)
{
    for (int kind : {1, 2, 3})
    {
        host_.reset();
        EXPECT_EQ(0, setupTalkBack(kind));
        EXPECT_EQ((Calls{
                      "AudioDispatcher#1::AudioDispatcher(no player)",
                      "AudioDispatcher#1::initRTBBuilder(trackID=2, 1364)",
                      "AudioDispatcher#1::setConnection(kind " + std::to_string(kind) + ")",
                  }),
                  host_.calls());
        OVAudioBackDispatcherMgr::getInstance()->clearAllSession();
    }
}

TEST_F(OVLiveControllerTalkBack, VerbsGoToTheManagerWithTheSessionAlone)
{
    ASSERT_EQ(0, setupTalkBack());
    host_.clearCalls();
    EXPECT_EQ(0, controller_->play(session_, talkBack_));
    EXPECT_EQ(0, controller_->pause(session_, talkBack_));
    int ssrc = 0;
    EXPECT_EQ(0, controller_->getTrackSSRC(session_, talkBack_, ssrc));
    EXPECT_EQ(2001, ssrc);
    CapturedOutput output;
    EXPECT_EQ(0, controller_->stop(session_, talkBack_));
    EXPECT_EQ("________________OVAudioBackDispatcherMgr::stopAudio\n", output.text());
    EXPECT_EQ((Calls{
                  "AudioDispatcher#1::play()",
                  "AudioDispatcher#1::pause()",
                  "AudioDispatcher#1::getTrackSSRC()",
                  "AudioDispatcher#1::~AudioDispatcher()",
              }),
              host_.calls());
}

TEST_F(OVLiveControllerTalkBack, VerbsPassTheManagersResultOn)
{
    ASSERT_EQ(0, setupTalkBack());
    host_.script("AudioDispatcher::getTrackSSRC", {-504});
    int ssrc = 0;
    EXPECT_EQ(-504, controller_->getTrackSSRC(session_, talkBack_, ssrc));
    EXPECT_EQ(-6, controller_->play("another session", talkBack_));
    EXPECT_EQ(-6, controller_->stop("another session", talkBack_));
}

TEST_F(OVLiveControllerTalkBack, TrackIdsAreComparedWhole)
{
    ASSERT_EQ(0, setupTalkBack());
    host_.clearCalls();
    controller_->play(session_, "trackID=");
    controller_->play(session_, "trackID=22");
    controller_->play(session_, "TRACKID=2");
    EXPECT_EQ(0u, host_.callCount("AudioDispatcher::play"));
    EXPECT_EQ(3u, host_.callCount("RTPStreamDispatcherMgr::play"));
}

TEST_F(OVLiveControllerTalkBack, RefusedSessionLeavesTheTrackOrdinary)
{
    host_.script("AudioDispatcher::initRTBBuilder", {-505});
    EXPECT_EQ(-505, setupTalkBack());
    EXPECT_EQ(0u, host_.callCount("AudioDispatcher::setConnection"));
    EXPECT_EQ(0, host_.living("AudioDispatcher"));
    EXPECT_EQ(0, host_.living("IConnection"));
    EXPECT_EQ(-6, controller_->play(session_, "")) << "the empty track id is still talk-back's";
}

TEST_F(OVLiveControllerTalkBack, FailedConnectionIsReportedAndTheTrackStaysTalkBack)
{
    host_.script("AudioDispatcher::setConnection", {-506});
    EXPECT_EQ(-506, setupTalkBack());
    EXPECT_EQ(1, OVAudioBackDispatcherMgr::getInstance()->getSessionNum());
    EXPECT_EQ(0, controller_->play(session_, talkBack_));
    EXPECT_EQ(1u, host_.callCount("AudioDispatcher::play"));
}

TEST_F(OVLiveControllerTalkBack, SecondSetupOfOneSessionIsRefused)
{
    ASSERT_EQ(0, setupTalkBack());
    EXPECT_EQ(-6, setupTalkBack());
    EXPECT_EQ(1, OVAudioBackDispatcherMgr::getInstance()->getSessionNum());
}
