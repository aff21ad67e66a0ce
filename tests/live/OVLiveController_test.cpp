#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "hostapi/live/RTPStreamDispatcherMgr.h"
#include "tests/fakehost/FailingCalls.h"
#include "tests/fakehost/FakeStatus.h"
#include "tests/live/LiveControllerFixture.h"

namespace
{

using Calls = std::vector<std::string>;

class OVLiveControllerTest : public LiveControllerFixture<FirstForm>
{
protected:
    ~OVLiveControllerTest() noexcept override {}

    void TearDown() override
    {
        for (const std::string& track : {video_, audio_})
        {
            RTPStreamDispatcherMgr::getInstance()->deleteRTPConnection("12/0", session_, track);
        }
        LiveControllerFixture<FirstForm>::TearDown();
    }
};

class OVLiveControllerTransport : public OVLiveControllerTest, public testing::WithParamInterface<int>
{
protected:
    ~OVLiveControllerTransport() noexcept override {}
};

}  // namespace

TEST_P(OVLiveControllerTransport, SetupCreatesThePacketiserWith1364BytesThenAttachesTheConnection)
{
    const int kind = GetParam();
    EXPECT_EQ(0, controller_->setup(session_, video_, connection(kind)));
    EXPECT_EQ((Calls{
                  "RTPStreamDispatcherMgr::initRTPBuilder(12/0, session, trackID=0, H264, 1364)",
                  "RTPStreamDispatcherMgr::addRTPConnection(12/0, session, trackID=0, kind " +
                      std::to_string(kind) + ")",
              }),
              host_.calls());
}

INSTANTIATE_TEST_SUITE_P(Known, OVLiveControllerTransport, testing::Values(1, 2, 3),
                         [](const testing::TestParamInfo<int>& kind)
                         { return "Kind" + std::to_string(kind.param); });

TEST_F(OVLiveControllerTest, EachFailingCallEndsSetupWithItsCodeSilently)
{
    FailingCalls(2).duringSetup([this] { return controller_->setup(session_, video_, connection(2)); });
}

TEST_F(OVLiveControllerTest, PlayAndPauseGoToTheDispatcherAndPassItsResultOn)
{
    controller_->setup(session_, video_, connection(1));
    host_.clearCalls();
    EXPECT_EQ(0, controller_->play(session_, video_));
    EXPECT_EQ(0, controller_->pause(session_, video_));
    host_.script("RTPStreamDispatcherMgr::play", {-501});
    host_.script("RTPStreamDispatcherMgr::pause", {-502});
    EXPECT_EQ(-501, controller_->play(session_, video_));
    EXPECT_EQ(-502, controller_->pause(session_, video_));
    EXPECT_EQ((Calls{
                  "RTPStreamDispatcherMgr::play(12/0, session, trackID=0)",
                  "RTPStreamDispatcherMgr::pause(12/0, session, trackID=0)",
                  "RTPStreamDispatcherMgr::play(12/0, session, trackID=0)",
                  "RTPStreamDispatcherMgr::pause(12/0, session, trackID=0)",
              }),
              host_.calls());
}

TEST_F(OVLiveControllerTest, PlayOfATrackThatWasNeverSetUpReachesTheDispatcher)
{
    EXPECT_EQ(fakeTrackUnknown, controller_->play(session_, "never set up"));
    EXPECT_EQ(fakeTrackUnknown, controller_->pause(session_, "never set up"));
}

TEST_F(OVLiveControllerTest, StopIsAlwaysSuccess)
{
    controller_->setup(session_, video_, connection(1));
    host_.clearCalls();
    EXPECT_EQ(0, controller_->stop(session_, video_));
    EXPECT_EQ(0, controller_->stop(session_, video_)) << "the dispatcher does not know it any more";
    host_.script("RTPStreamDispatcherMgr::deleteRTPConnection", {-503});
    EXPECT_EQ(0, controller_->stop(session_, audio_));
    EXPECT_EQ((Calls{
                  "RTPStreamDispatcherMgr::deleteRTPConnection(12/0, session, trackID=0)",
                  "RTPStreamDispatcherMgr::deleteRTPConnection(12/0, session, trackID=0)",
                  "RTPStreamDispatcherMgr::deleteRTPConnection(12/0, session, trackID=1)",
              }),
              host_.calls());
    EXPECT_EQ(0, host_.living("IConnection"));
}

TEST_F(OVLiveControllerTest, GetTrackSsrcIsAlwaysSuccess)
{
    controller_->setup(session_, video_, connection(1));
    int ssrc = -1;
    EXPECT_EQ(0, controller_->getTrackSSRC(session_, video_, ssrc));
    EXPECT_GT(ssrc, 1000);
    ssrc = -1;
    EXPECT_EQ(0, controller_->getTrackSSRC(session_, "never set up", ssrc));
    EXPECT_EQ(-1, ssrc);
}

TEST_F(OVLiveControllerTest, TracksOfTwoSessionsAreApart)
{
    controller_->setup("one", video_, connection(1));
    controller_->setup("two", video_, connection(1));
    int first = 0;
    int second = 0;
    controller_->getTrackSSRC("one", video_, first);
    controller_->getTrackSSRC("two", video_, second);
    EXPECT_NE(first, second);
    controller_->stop("one", video_);
    EXPECT_EQ(0, controller_->play("two", video_));
    controller_->stop("two", video_);
}
