#include "live/OVLiveController.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "hostapi/live/RTPStreamDispatcherMgr.h"
#include "tests/fakehost/FakeStatus.h"
#include "tests/live/LiveControllerFixture.h"

namespace
{

using Calls = std::vector<std::string>;

class OVLiveControllerTest : public LiveControllerFixture
{
protected:
    ~OVLiveControllerTest() noexcept override {}

    void TearDown() override
    {
        for (const std::string& track : {video_, audio_})
        {
            RTPStreamDispatcherMgr::getInstance()->deleteRTPConnection("12/0", session_, track);
        }
        LiveControllerFixture::TearDown();
    }
};

class OVLiveControllerTransport : public OVLiveControllerTest, public testing::WithParamInterface<int>
{
protected:
    ~OVLiveControllerTransport() noexcept override {}
};

class OVLiveControllerUnknownTransport : public OVLiveControllerTest, public testing::WithParamInterface<int>
{
protected:
    ~OVLiveControllerUnknownTransport() noexcept override {}
};

}  // namespace

TEST_P(OVLiveControllerTransport, SetupBuildsThePacketiserWith1364BytesThenAttachesTheConnection)
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

INSTANTIATE_TEST_SUITE_P(Known, OVLiveControllerTransport, testing::Values(1, 2, 3));

TEST_P(OVLiveControllerUnknownTransport, SetupIsRefusedBeforeTheTrackIsLookedUp)
{
    EXPECT_EQ(-6, controller_->setup(session_, video_, connection(GetParam())));
    EXPECT_EQ(-6, controller_->setup(session_, "no such track", connection(GetParam())));
    EXPECT_EQ(-6, controller_->setup(session_, talkBack_, connection(GetParam())));
    EXPECT_TRUE(host_.calls().empty());
}

INSTANTIATE_TEST_SUITE_P(Unknown, OVLiveControllerUnknownTransport, testing::Values(0, 4, -1, 256 + 1));

TEST_F(OVLiveControllerTest, SetupWithoutConnectionThrowsTheHandlesReport)
{
    const SafePointer<IConnection> none;
    CapturedOutput output;
    EXPECT_THROW(controller_->setup(session_, video_, none), OVRuntimeError);
    EXPECT_EQ("SafePointer Report:11IConnection Use NULL pointer ->\n", output.text());
}

TEST_F(OVLiveControllerTest, SetupOfATrackThatIsNotDescribedIsNotFound)
{
    CapturedOutput output;
    for (const char* track : {"", "trackID=", "trackID=9", "trackID=00"})
    {
        EXPECT_EQ(-8, controller_->setup(session_, track, connection(1))) << track;
    }
    EXPECT_EQ("", output.text());
    EXPECT_TRUE(host_.calls().empty());
}

TEST_F(OVLiveControllerTest, EachFailingCallEndsSetupWithItsCodeSilently)
{
    int failures = 0;
    for (int nth = 1;; ++nth)
    {
        host_.clearCalls();
        host_.failNthCall(nth, -500 - nth);
        CapturedOutput output;
        const int result = controller_->setup(session_, video_, connection(2));
        EXPECT_EQ("", output.text());
        if (!host_.failureStruck())
        {
            EXPECT_EQ(0, result);
            break;
        }
        ASSERT_LE(nth, 2);
        EXPECT_EQ(-500 - nth, result);
        EXPECT_EQ(static_cast<std::size_t>(nth), host_.calls().size())
            << "nothing is called after the failure";
        EXPECT_EQ(0, host_.living("IConnection"));
        ++failures;
    }
    EXPECT_EQ(2, failures);
    EXPECT_EQ(1, host_.living("IConnection")) << "the dispatcher keeps the connection of the good setup";
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

TEST_F(OVLiveControllerTest, PlayOfATrackThatWasNeverSetUpIsTheDispatchersToJudge)
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

TEST_F(OVLiveControllerTest, DestructionTellsNoDispatcherAnything)
{
    controller_->setup(session_, video_, connection(1));
    host_.clearCalls();
    controller_.dec_reference();
    EXPECT_TRUE(controller_.isEmpty());
    EXPECT_TRUE(host_.calls().empty());
    EXPECT_EQ(1, host_.living("IConnection"));
}

TEST_F(OVLiveControllerTest, GetMediaInfoCopiesTheDescription)
{
    MediaInfo info;
    info.addSubMediaInfo(SubMediaInfo());
    EXPECT_EQ(0, controller_->getMediaInfo(info));
    EXPECT_EQ(3u, info.getAllSubMediaInfo().size());
    info.clearAllSubMediaInfo();
    MediaInfo again;
    controller_->getMediaInfo(again);
    EXPECT_EQ(3u, again.getAllSubMediaInfo().size());
    EXPECT_EQ("orv/live/12/0", again.mediaUrl);
}

TEST_F(OVLiveControllerTest, HasNoDescriptionBeforeItIsInitialised)
{
    OVLiveController controller;
    MediaInfo info;
    info.addSubMediaInfo(SubMediaInfo());
    EXPECT_EQ(0, controller.getMediaInfo(info));
    EXPECT_TRUE(info.getAllSubMediaInfo().empty());
}

TEST_F(OVLiveControllerTest, ParseGivesTheStreamKeyAndLeavesItOnFailure)
{
    OVLiveController controller;
    std::string key = "before";
    CapturedOutput output;
    EXPECT_EQ(-8, controller.parseMediaUrl(type, "orv/live/12", key));
    EXPECT_EQ("before", key);
    EXPECT_EQ(0, controller.parseMediaUrl(type, "orv/live/12/0", key));
    EXPECT_EQ("12/0", key);
    EXPECT_EQ(0, controller.parseMediaUrl(type, "orv/live/1/2", key));
    EXPECT_EQ("1/2", key);
}

TEST_F(OVLiveControllerTest, LiveStreamAnswersRangesWithItsFixedPair)
{
    double start = 1.0;
    double end = 2.0;
    EXPECT_EQ(0, controller_->getCurPlayRange(session_, video_, start, end));
    EXPECT_EQ(-100.0, start);
    EXPECT_EQ(-99.0, end);
    start = 1.0;
    end = 2.0;
    EXPECT_EQ(0, controller_->correctPlayRange(session_, video_, 10.0, 20.0, start, end));
    EXPECT_EQ(-100.0, start);
    EXPECT_EQ(-99.0, end);
}

TEST_F(OVLiveControllerTest, IsAlwaysConnected)
{
    bool connected = false;
    EXPECT_EQ(0, controller_->getConnetionState("no such session", "no such track", connected));
    EXPECT_TRUE(connected);
}

TEST_F(OVLiveControllerTest, WhatALiveStreamCannotDoIsAcceptedAndIgnored)
{
    EXPECT_EQ(0, controller_->mediaInit());
    EXPECT_EQ(0, controller_->setPlayRange(session_, video_, 1.0, 2.0, 3, true));
    EXPECT_EQ(0, controller_->setPauseRange(session_, video_, 1.0));
    EXPECT_EQ(0, controller_->setSpeed(session_, video_, 2.0, 2.0));
    controller_->setRTCPFrequence(session_, video_, 5);
    EXPECT_TRUE(host_.calls().empty());
}

TEST_F(OVLiveControllerTest, SessionAndPacketInformationAreLeftAsTheyWere)
{
    GeneralSessionInfo session;
    session.setCameraID(3);
    session.setStreamID(4);
    session.setIsMulticastFlag(true);
    EXPECT_EQ(0, controller_->getSessionInfo(session));
    EXPECT_EQ(3, session.getCameraID());
    EXPECT_EQ(4, session.getStreamID());
    EXPECT_TRUE(session.getIsMulticastFlag());
    RTPPacketInfo packet;
    packet.sequenceNumber = 5;
    packet.rtpTimestamp = 6;
    EXPECT_EQ(0, controller_->getCurRTPPacketInfo(session_, video_, packet));
    EXPECT_EQ(5, packet.sequenceNumber);
    EXPECT_EQ(6u, packet.rtpTimestamp);
}

TEST_F(OVLiveControllerTest, NeverTakesItsOwnLock)
{
    host_.recordLocks(true);
    controller_->setup(session_, video_, connection(1));
    controller_->play(session_, video_);
    controller_->stop(session_, video_);
    host_.recordLocks(false);
    EXPECT_EQ(0u, host_.callCount("OVMutex::Lock"));
}
