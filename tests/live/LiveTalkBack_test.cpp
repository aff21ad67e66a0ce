#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/live/LiveControllerFixture.h"

namespace
{

using Calls = std::vector<std::string>;

template <class Form>
class LiveTalkBack : public LiveControllerFixture<Form>
{
protected:
    ~LiveTalkBack() noexcept override {}

    int setupTalkBack(int kind = 1)
    {
        CapturedOutput output;
        return this->controller_->setup(this->session_, this->talkBack_, this->connection(kind));
    }

    /// Without the lines that a controller prints about a live track.
    int stop(const std::string& sessionId, const std::string& trackId)
    {
        CapturedOutput output;
        return this->controller_->stop(sessionId, trackId);
    }
};

using Forms = testing::Types<FirstForm, SecondForm>;
TYPED_TEST_SUITE(LiveTalkBack, Forms);

}  // namespace

TYPED_TEST(LiveTalkBack, EmptyTrackIdGoesToTheTalkBackManagerUntilASetupOfItsTrack)
{
    EXPECT_EQ(-6, this->controller_->play(this->session_, ""));
    EXPECT_EQ(-6, this->controller_->pause(this->session_, ""));
    EXPECT_EQ(-6, this->stop(this->session_, ""));
    int ssrc = 0;
    EXPECT_EQ(-6, this->controller_->getTrackSSRC(this->session_, "", ssrc));
    EXPECT_TRUE(this->host_.calls().empty());
    ASSERT_EQ(0, this->setupTalkBack());
    this->host_.clearCalls();
    this->controller_->play(this->session_, "");
    EXPECT_EQ((Calls{TypeParam::method("play", "")}), this->host_.calls());
}

TYPED_TEST(LiveTalkBack, ItsTrackIsOrdinaryUntilItsSetup)
{
    this->controller_->play(this->session_, this->talkBack_);
    EXPECT_EQ((Calls{TypeParam::method("play", this->talkBack_)}), this->host_.calls());
}

TYPED_TEST(LiveTalkBack, SetupCreatesASessionAndAttachesTheConnection)
{
    for (int kind : {1, 2, 3})
    {
        this->host_.reset();
        EXPECT_EQ(0, this->setupTalkBack(kind));
        Calls expected = TypeParam::packetSizing(kind);
        expected.insert(expected.end(),
                        {
                            "AudioDispatcher#1::AudioDispatcher(no player)",
                            "AudioDispatcher#1::initRTBBuilder(trackID=2, 1364)",
                            "AudioDispatcher#1::setConnection(kind " + std::to_string(kind) + ")",
                        });
        EXPECT_EQ(expected, this->host_.calls());
        OVAudioBackDispatcherMgr::getInstance()->clearAllSession();
    }
}

TYPED_TEST(LiveTalkBack, MethodsGoToTheManagerWithTheSessionAlone)
{
    ASSERT_EQ(0, this->setupTalkBack());
    this->host_.clearCalls();
    EXPECT_EQ(0, this->controller_->play(this->session_, this->talkBack_));
    EXPECT_EQ(0, this->controller_->pause(this->session_, this->talkBack_));
    int ssrc = 0;
    EXPECT_EQ(0, this->controller_->getTrackSSRC(this->session_, this->talkBack_, ssrc));
    EXPECT_EQ(2001, ssrc);
    CapturedOutput output;
    EXPECT_EQ(0, this->controller_->stop(this->session_, this->talkBack_));
    EXPECT_EQ("________________OVAudioBackDispatcherMgr::stopAudio\n", output.text());
    EXPECT_EQ((Calls{
                  "AudioDispatcher#1::play()",
                  "AudioDispatcher#1::pause()",
                  "AudioDispatcher#1::getTrackSSRC()",
                  "AudioDispatcher#1::~AudioDispatcher()",
              }),
              this->host_.calls());
}

TYPED_TEST(LiveTalkBack, MethodsPassTheManagersResultOn)
{
    ASSERT_EQ(0, this->setupTalkBack());
    this->host_.script("AudioDispatcher::getTrackSSRC", {-504});
    int ssrc = 0;
    EXPECT_EQ(-504, this->controller_->getTrackSSRC(this->session_, this->talkBack_, ssrc));
    EXPECT_EQ(-6, this->controller_->play("another session", this->talkBack_));
    EXPECT_EQ(-6, this->stop("another session", this->talkBack_));
}

TYPED_TEST(LiveTalkBack, TrackIdsAreComparedWhole)
{
    ASSERT_EQ(0, this->setupTalkBack());
    this->host_.clearCalls();
    this->controller_->play(this->session_, "trackID=");
    this->controller_->play(this->session_, "trackID=22");
    this->controller_->play(this->session_, "TRACKID=2");
    EXPECT_EQ(0u, this->host_.callCount("AudioDispatcher::play"));
    EXPECT_EQ(3u, this->host_.callCount(std::string(TypeParam::dispatcher) + "::play"));
}

TYPED_TEST(LiveTalkBack, RefusedSessionLeavesTheTrackOrdinary)
{
    this->host_.script("AudioDispatcher::initRTBBuilder", {-505});
    EXPECT_EQ(-505, this->setupTalkBack());
    EXPECT_EQ(0u, this->host_.callCount("AudioDispatcher::setConnection"));
    EXPECT_EQ(0, this->host_.living("AudioDispatcher"));
    EXPECT_EQ(0, this->host_.living("IConnection"));
    EXPECT_EQ(-6, this->controller_->play(this->session_, "")) << "the empty track id is still talk-back's";
}

TYPED_TEST(LiveTalkBack, FailedConnectionIsReportedAndTheTrackStaysTalkBack)
{
    this->host_.script("AudioDispatcher::setConnection", {-506});
    EXPECT_EQ(-506, this->setupTalkBack());
    EXPECT_EQ(1, OVAudioBackDispatcherMgr::getInstance()->getSessionNum());
    EXPECT_EQ(0, this->controller_->play(this->session_, this->talkBack_));
    EXPECT_EQ(1u, this->host_.callCount("AudioDispatcher::play"));
}

TYPED_TEST(LiveTalkBack, SecondSetupOfOneSessionIsRefused)
{
    ASSERT_EQ(0, this->setupTalkBack());
    EXPECT_EQ(-6, this->setupTalkBack());
    EXPECT_EQ(1, OVAudioBackDispatcherMgr::getInstance()->getSessionNum());
}
