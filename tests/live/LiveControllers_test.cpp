// The common behaviour of all live controllers.
#include <gtest/gtest.h>

#include <string>

#include "hostapi/live/RTPStreamDispatcherMgr.h"
#include "tests/fakehost/RefCountInspector.h"
#include "tests/live/LiveControllerFixture.h"

namespace
{

template <class Form>
class LiveControllers : public LiveControllerFixture<Form>
{
protected:
    ~LiveControllers() noexcept override {}

    void TearDown() override
    {
        RTPStreamDispatcherMgr::getInstance()->deleteRTPConnection("12/0", this->session_, this->video_);
        LiveControllerFixture<Form>::TearDown();
    }
};

using Forms = testing::Types<FirstForm, SecondForm, MulticastForm>;
TYPED_TEST_SUITE(LiveControllers, Forms);

}  // namespace

TYPED_TEST(LiveControllers, RefuseUnknownTransportsBeforeTheyLookTheTrackUp)
{
    for (int kind : {0, 4, -1, 256 + 1, 256 + 2})
    {
        EXPECT_EQ(-6, this->controller_->setup(this->session_, this->video_, this->connection(kind)));
        EXPECT_EQ(-6, this->controller_->setup(this->session_, "no such track", this->connection(kind)));
        EXPECT_EQ(-6, this->controller_->setup(this->session_, this->talkBack_, this->connection(kind)));
    }
    EXPECT_TRUE(this->host_.calls().empty());
}

TYPED_TEST(LiveControllers, SetupWithoutConnectionThrowsTheHandlesReport)
{
    const SafePointer<IConnection> none;
    CapturedOutput output;
    EXPECT_THROW(this->controller_->setup(this->session_, this->video_, none), OVRuntimeError);
    EXPECT_EQ("SafePointer Report:11IConnection Use NULL pointer ->\n", output.text());
}

TYPED_TEST(LiveControllers, SetupOfATrackThatIsNotDescribedIsNotFound)
{
    CapturedOutput output;
    for (const char* track : {"", "trackID=", "trackID=9", "trackID=00"})
    {
        EXPECT_EQ(-8, this->controller_->setup(this->session_, track, this->connection(1))) << track;
    }
    EXPECT_EQ("", output.text());
    EXPECT_TRUE(this->host_.calls().empty());
    EXPECT_EQ(0, this->host_.living("IConnection"));
}

TYPED_TEST(LiveControllers, DestructionNotifiesNoDispatcher)
{
    this->controller_->setup(this->session_, this->video_, this->connection(1));
    this->host_.clearCalls();
    this->controller_.dec_reference();
    EXPECT_TRUE(this->controller_.isEmpty());
    EXPECT_TRUE(this->host_.calls().empty());
    EXPECT_EQ(1, this->host_.living("IConnection"));
}

TYPED_TEST(LiveControllers, GetMediaInfoCopiesTheDescription)
{
    MediaInfo info;
    info.addSubMediaInfo(SubMediaInfo());
    EXPECT_EQ(0, this->controller_->getMediaInfo(info));
    EXPECT_EQ(3u, info.getAllSubMediaInfo().size());
    info.clearAllSubMediaInfo();
    MediaInfo again;
    this->controller_->getMediaInfo(again);
    EXPECT_EQ(3u, again.getAllSubMediaInfo().size());
    EXPECT_EQ(TypeParam::canonicalUrl, again.mediaUrl);
}

TYPED_TEST(LiveControllers, HaveNoDescriptionBeforeTheyAreInitialised)
{
    typename TypeParam::Controller controller;
    MediaInfo info;
    info.addSubMediaInfo(SubMediaInfo());
    EXPECT_EQ(0, controller.getMediaInfo(info));
    EXPECT_TRUE(info.getAllSubMediaInfo().empty());
}

TYPED_TEST(LiveControllers, AnswerRangesWithTheFixedPairOfALiveStream)
{
    double start = 1.0;
    double end = 2.0;
    EXPECT_EQ(0, this->controller_->getCurPlayRange(this->session_, this->video_, start, end));
    EXPECT_EQ(-100.0, start);
    EXPECT_EQ(-99.0, end);
    start = 1.0;
    end = 2.0;
    EXPECT_EQ(0, this->controller_->correctPlayRange(this->session_, this->video_, 10.0, 20.0, start, end));
    EXPECT_EQ(-100.0, start);
    EXPECT_EQ(-99.0, end);
}

TYPED_TEST(LiveControllers, AreAlwaysConnected)
{
    bool connected = false;
    EXPECT_EQ(0, this->controller_->getConnetionState("no such session", "no such track", connected));
    EXPECT_TRUE(connected);
}

TYPED_TEST(LiveControllers, AcceptAndIgnoreWhatALiveStreamCannotDo)
{
    EXPECT_EQ(0, this->controller_->mediaInit());
    EXPECT_EQ(0, this->controller_->setPlayRange(this->session_, this->video_, 1.0, 2.0, 3, true));
    EXPECT_EQ(0, this->controller_->setPauseRange(this->session_, this->video_, 1.0));
    EXPECT_EQ(0, this->controller_->setSpeed(this->session_, this->video_, 2.0, 2.0));
    this->controller_->setRTCPFrequence(this->session_, this->video_, 5);
    EXPECT_TRUE(this->host_.calls().empty());
}

TYPED_TEST(LiveControllers, LeavePacketInformationAsItWas)
{
    RTPPacketInfo packet;
    packet.sequenceNumber = 5;
    packet.rtpTimestamp = 6;
    EXPECT_EQ(0, this->controller_->getCurRTPPacketInfo(this->session_, this->video_, packet));
    EXPECT_EQ(5, packet.sequenceNumber);
    EXPECT_EQ(6u, packet.rtpTimestamp);
}

TYPED_TEST(LiveControllers, NeverTakeTheirOwnLock)
{
    int ssrc = 0;
    CapturedOutput output;
    this->host_.recordLocks(true);
    this->controller_->setup(this->session_, this->video_, this->connection(1));
    this->controller_->play(this->session_, this->video_);
    this->controller_->getTrackSSRC(this->session_, this->video_, ssrc);
    this->controller_->pause(this->session_, this->video_);
    this->controller_->stop(this->session_, this->video_);
    this->host_.recordLocks(false);
    EXPECT_EQ(0u, this->host_.callCount("OVMutex::Lock"));
}

TYPED_TEST(LiveControllers, LeaveNoHandleBehindAfterAWholeLife)
{
    const std::size_t records = this->host_.recordsInUse();
    CapturedOutput output;
    this->controller_->setup(this->session_, this->video_, this->connection(1));
    this->controller_->play(this->session_, this->video_);
    this->controller_->stop(this->session_, this->video_);
    EXPECT_EQ(records, this->host_.recordsInUse());
    EXPECT_EQ(0, this->host_.living("IConnection"));
}

namespace
{

template <class Form>
class UnicastLiveControllers : public LiveControllerFixture<Form>
{
protected:
    ~UnicastLiveControllers() noexcept override {}
};

using UnicastForms = testing::Types<FirstForm, SecondForm>;
TYPED_TEST_SUITE(UnicastLiveControllers, UnicastForms);

}  // namespace

TYPED_TEST(UnicastLiveControllers, ParseGivesTheStreamKeyAndLeavesItOnFailure)
{
    typename TypeParam::Controller controller;
    std::string key = "before";
    CapturedOutput output;
    EXPECT_EQ(-8, controller.parseMediaUrl(this->type, "orv/live/12", key));
    EXPECT_EQ("before", key);
    EXPECT_EQ(0, controller.parseMediaUrl(this->type, "orv/live/12/0", key));
    EXPECT_EQ("12/0", key);
    EXPECT_EQ(0, controller.parseMediaUrl(this->type, "orv/live/1/2", key));
    EXPECT_EQ("1/2", key);
}

TYPED_TEST(UnicastLiveControllers, LeaveSessionInformationAsItWas)
{
    GeneralSessionInfo session;
    session.setCameraID(3);
    session.setStreamID(4);
    session.setIsMulticastFlag(true);
    EXPECT_EQ(0, this->controller_->getSessionInfo(session));
    EXPECT_EQ(3, session.getCameraID());
    EXPECT_EQ(4, session.getStreamID());
    EXPECT_TRUE(session.getIsMulticastFlag());
}

namespace
{

/// The controllers on LiveDispatcherMgr, of which there is none here.
template <class Form>
class LiveControllersWithoutDispatcher : public LiveControllerFixture<Form>
{
protected:
    ~LiveControllersWithoutDispatcher() noexcept override {}

    void SetUp() override
    {
        LiveControllerFixture<Form>::SetUp();
        FakeLiveSessions::haveNoDispatcher();
    }

    int setup(const std::string& trackId, int kind)
    {
        return this->controller_->setup(this->session_, trackId, this->connection(kind));
    }

    static constexpr const char* report = "SafePointer Report:17LiveDispatcherMgr Use NULL pointer ->\n";
};

using DispatcherForms = testing::Types<SecondForm, MulticastForm>;
TYPED_TEST_SUITE(LiveControllersWithoutDispatcher, DispatcherForms);

}  // namespace

TYPED_TEST(LiveControllersWithoutDispatcher, RefuseUnknownTransportsAllTheSame)
{
    for (int kind : {0, 4, -1})
    {
        EXPECT_EQ(-6, this->setup(this->video_, kind)) << kind;
    }
}

TYPED_TEST(LiveControllersWithoutDispatcher, FindATrackMissingByTransportsThatNeedNoMtu)
{
    for (int kind : {1, 3})
    {
        EXPECT_EQ(-8, this->setup("no such track", kind)) << kind;
    }
}

TYPED_TEST(LiveControllersWithoutDispatcher, ThrowWhereTheMtuIsAskedFor)
{
    CapturedOutput output;
    EXPECT_THROW(this->setup("no such track", 2), OVRuntimeError);
    EXPECT_EQ(this->report, output.text());
}

TYPED_TEST(LiveControllersWithoutDispatcher, ThrowWhereTheSessionIsLookedUp)
{
    CapturedOutput output;
    EXPECT_THROW(this->setup(this->video_, 1), OVRuntimeError);
    EXPECT_EQ(this->report, output.text());
}
