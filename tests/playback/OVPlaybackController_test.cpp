#include "playback/OVPlaybackController.h"

#include <gtest/gtest.h>

#include <functional>
#include <limits>
#include <ostream>
#include <string>
#include <vector>

#include "tests/fakehost/FailingCalls.h"
#include "tests/fakehost/FakeStatus.h"
#include "tests/playback/PlaybackControllerFixture.h"

namespace
{

using Calls = std::vector<std::string>;

class OVPlaybackControllerTest : public PlaybackControllerFixture
{
protected:
    ~OVPlaybackControllerTest() noexcept override {}

    void SetUp() override
    {
        PlaybackControllerFixture::SetUp();
        controller_ = make("rtsp://192.0.2.10/orv/playback/12_100_3700");
    }

    void TearDown() override
    {
        for (const char* session : {"one", "two"})
        {
            RTPPlayBackDispacherMgr::getInstance()->stop(session, video_);
        }
        PlaybackControllerFixture::TearDown();
    }

    SafePointer<IRTSPController> controller_;
};

/// An operation that the controller passes on unchanged.
struct Forwarded
{
    const char* name;
    std::function<int(IRTSPController&)> call;
    const char* operation;
    const char* arguments;

    friend std::ostream& operator<<(std::ostream& out, const Forwarded& row)
    {
        return out << row.name;
    }
};

const std::vector<Forwarded>& allForwarded()
{
    static const std::vector<Forwarded> all = {
        {"play", [](IRTSPController& it) { return it.play("s", "t"); }, "play", "s, t"},
        {"pause", [](IRTSPController& it) { return it.pause("s", "t"); }, "pause", "s, t"},
        {"stop", [](IRTSPController& it) { return it.stop("s", "t"); }, "stop", "s, t"},
        {"setPlayRange", [](IRTSPController& it) { return it.setPlayRange("s", "t", 1.5, 2.5, 3, true); },
         "setPlayRange", "s, t, 1.5, 2.5, 3, 1"},
        {"setPlayRangeOtherwise",
         [](IRTSPController& it) { return it.setPlayRange("s", "t", -1, 0, -4, false); }, "setPlayRange",
         "s, t, -1, 0, -4, 0"},
        {"getCurPlayRange",
         [](IRTSPController& it)
         {
             double start = 0;
             double end = 0;
             return it.getCurPlayRange("s", "t", start, end);
         },
         "getCurPlayRange", "s, t"},
        {"setPauseRange", [](IRTSPController& it) { return it.setPauseRange("s", "t", 4.5); },
         "setPauseRange", "s, t, 4.5"},
        {"setSpeed", [](IRTSPController& it) { return it.setSpeed("s", "t", 2, 0.25); }, "setSpeed",
         "s, t, 2, 0.25"},
        {"getCurRTPPacketInfo",
         [](IRTSPController& it)
         {
             RTPPacketInfo info;
             return it.getCurRTPPacketInfo("s", "t", info);
         },
         "getCurRTPPacketInfo", "s, t"},
        {"getTrackSSRC",
         [](IRTSPController& it)
         {
             int ssrc = 0;
             return it.getTrackSSRC("s", "t", ssrc);
         },
         "getTrackSSRC", "s, t"},
        {"getConnetionState",
         [](IRTSPController& it)
         {
             bool connected = false;
             return it.getConnetionState("s", "t", connected);
         },
         "getConnectionState", "s, t"},
    };
    return all;
}

class OVPlaybackControllerForwards : public OVPlaybackControllerTest,
                                     public testing::WithParamInterface<Forwarded>
{
protected:
    ~OVPlaybackControllerForwards() noexcept override {}
};

}  // namespace

TEST_P(OVPlaybackControllerForwards, ArgumentsAndResultUnchangedWithoutItsLock)
{
    const Forwarded& operation = GetParam();
    const std::string name = std::string("RTPPlayBackDispacherMgr::") + operation.operation;
    host_.script(name, {0, 17, -300});
    host_.recordLocks(true);
    EXPECT_EQ(0, operation.call(*controller_.operator->()));
    EXPECT_EQ(17, operation.call(*controller_.operator->()));
    EXPECT_EQ(-300, operation.call(*controller_.operator->()));
    host_.recordLocks(false);
    const std::string call = name + "(" + operation.arguments + ")";
    EXPECT_EQ((Calls{call, call, call}), host_.calls());
}

INSTANTIATE_TEST_SUITE_P(Every, OVPlaybackControllerForwards, testing::ValuesIn(allForwarded()),
                         [](const auto& row) { return row.param.name; });

TEST_F(OVPlaybackControllerTest, SetupGivesDescriptionAndRecordBeforeTheConnection)
{
    EXPECT_EQ(0, controller_->setup(session_, video_, connection(2)));
    EXPECT_EQ((Calls{
                  "RTPPlayBackDispacherMgr::setMediaInfo(orv/playback/12_100_3700)",
                  "RTPPlayBackDispacherMgr::initDispatcher(session, device A, false, camera 12, 100 to 3700, "
                  "device "
                  "A, 192.0.2.1)",
                  "RTPPlayBackDispacherMgr::setup(session, trackID=0, kind 2)",
              }),
              host_.calls());
}

TEST_F(OVPlaybackControllerTest, SetupLeavesTransportKindAndTrackToTheDispatcher)
{
    EXPECT_EQ(0, controller_->setup(session_, video_, connection(0)));
    EXPECT_EQ(fakeTrackUnknown, controller_->setup(session_, "trackID=9", connection(1)));
}

TEST_F(OVPlaybackControllerTest, SetupTakesNoLock)
{
    host_.recordLocks(true);
    controller_->setup(session_, video_, connection(1));
    host_.recordLocks(false);
    EXPECT_EQ(0u, host_.callCount("OVMutex::Lock"));
}

TEST_F(OVPlaybackControllerTest, DescriptionThatTheDispatcherRefusesDoesNotEndSetup)
{
    host_.script("RTPPlayBackDispacherMgr::setMediaInfo", {-500});
    host_.script("RTPPlayBackDispacherMgr::setup", {-77});
    EXPECT_EQ(-77, controller_->setup(session_, video_, connection(1)));
    EXPECT_EQ(3u, host_.calls().size());
}

TEST_F(OVPlaybackControllerTest, EachFailingCallBehindItEndsSetupWithItsCodeSilently)
{
    FailingCalls(2, 2).duringSetup([this] { return controller_->setup(session_, video_, connection(2)); });
}

TEST_F(OVPlaybackControllerTest, RecordTimesAreWholeSecondsOf32BitsWithoutSign)
{
    const double infinity = std::numeric_limits<double>::infinity();
    const double notANumber = std::numeric_limits<double>::quiet_NaN();
    const struct
    {
        double begin;
        double end;
        const char* text;
    } rows[] = {
        {100.9, 200.999, "100 to 200"},
        {-5, -0.5, "0 to 0"},
        {4294967295.0, 4294967296.0, "4294967295 to 4294967295"},
        {4294967297.0, 1e300, "4294967295 to 4294967295"},
        {-infinity, infinity, "0 to 4294967295"},
        {notANumber, notANumber, "0 to 0"},
    };
    for (const auto& row : rows)
    {
        useInterval(row.begin, row.end);
        SafePointer<IRTSPController> controller;
        host_.clearCalls();
        ASSERT_EQ(0, factory_.createMedia("any", controller, false));
        const std::string record = std::string("camera 5, ") + row.text + ", device A, 192.0.2.1";
        EXPECT_EQ("MediaInfoTool::createPlaybackMediaInfo(" + record + ")", host_.calls().back());
        host_.clearCalls();
        controller->setup(session_, video_, connection(1));
        EXPECT_EQ("RTPPlayBackDispacherMgr::initDispatcher(session, device A, false, " + record + ")",
                  host_.calls().at(1));
    }
}

TEST_F(OVPlaybackControllerTest, AnswersOfTheDispatcherReachTheCaller)
{
    controller_->setup(session_, video_, connection(1));
    double start = 0;
    double end = 0;
    EXPECT_EQ(0, controller_->getCurPlayRange(session_, video_, start, end));
    EXPECT_EQ(12.5, start);
    EXPECT_EQ(60.0, end);
    RTPPacketInfo packet;
    EXPECT_EQ(0, controller_->getCurRTPPacketInfo(session_, video_, packet));
    EXPECT_EQ(17, packet.sequenceNumber);
    EXPECT_EQ(90000u, packet.rtpTimestamp);
    int ssrc = 0;
    EXPECT_EQ(0, controller_->getTrackSSRC(session_, video_, ssrc));
    EXPECT_GT(ssrc, 5000);
    bool connected = false;
    EXPECT_EQ(0, controller_->getConnetionState(session_, video_, connected));
    EXPECT_TRUE(connected);
}

TEST_F(OVPlaybackControllerTest, OutputsAreUnchangedWhenTheDispatcherRefuses)
{
    double start = 1;
    double end = 2;
    EXPECT_EQ(fakeTrackUnknown, controller_->getCurPlayRange(session_, "never", start, end));
    EXPECT_EQ(1, start);
    EXPECT_EQ(2, end);
    int ssrc = 3;
    EXPECT_EQ(fakeTrackUnknown, controller_->getTrackSSRC(session_, "never", ssrc));
    EXPECT_EQ(3, ssrc);
    bool connected = false;
    EXPECT_EQ(fakeTrackUnknown, controller_->getConnetionState(session_, "never", connected));
    EXPECT_FALSE(connected);
}

TEST_F(OVPlaybackControllerTest, StopOfATrackThatIsUnknownIsNoSuccess)
{
    EXPECT_EQ(fakeTrackUnknown, controller_->stop(session_, "never set up"));
}

TEST_F(OVPlaybackControllerTest, TracksOfTwoSessionsAreApart)
{
    const SafePointer<IRTSPController> other = make("orv/playback/12_100_3700");
    controller_->setup("one", video_, connection(1));
    other->setup("two", video_, connection(1));
    EXPECT_EQ(0, controller_->stop("one", video_));
    EXPECT_EQ(fakeTrackUnknown, controller_->play("one", video_));
    EXPECT_EQ(0, other->play("two", video_));
}

TEST_F(OVPlaybackControllerTest, MediaInitAndReportIntervalDoNothing)
{
    host_.recordLocks(true);
    EXPECT_EQ(0, controller_->mediaInit());
    controller_->setRTCPFrequence(session_, video_, 5);
    GeneralSessionInfo info;
    info.setCameraID(77);
    EXPECT_EQ(0, controller_->getSessionInfo(info));
    EXPECT_EQ(77, info.getCameraID());
    host_.recordLocks(false);
    EXPECT_TRUE(host_.calls().empty());
}

TEST_F(OVPlaybackControllerTest, GetMediaInfoCopiesTheDescriptionUnderTheLock)
{
    host_.recordLocks(true);
    MediaInfo info;
    info.addSubMediaInfo(SubMediaInfo());
    EXPECT_EQ(0, controller_->getMediaInfo(info));
    host_.recordLocks(false);
    EXPECT_EQ((Calls{"OVMutex::Lock(OVPlaybackController, 133)", "OVMutex::Unlock(OVMutexManager.h, 71)"}),
              host_.calls());
    EXPECT_EQ(2u, info.getAllSubMediaInfo().size());
    info.clearAllSubMediaInfo();
    MediaInfo again;
    controller_->getMediaInfo(again);
    EXPECT_EQ(2u, again.getAllSubMediaInfo().size());
}

TEST_F(OVPlaybackControllerTest, HoldsADispatcherOfItsOwnThatItNeverUses)
{
    EXPECT_EQ(1, host_.living("RTPPlayBackDispacher"));
    controller_->setup(session_, video_, connection(1));
    controller_->play(session_, video_);
    controller_->pause(session_, video_);
    controller_->stop(session_, video_);
    for (const std::string& call : host_.calls())
    {
        EXPECT_EQ(0u, call.find("RTPPlayBackDispacherMgr::")) << call;
    }
    controller_.dec_reference();
    EXPECT_EQ(0, host_.living("RTPPlayBackDispacher"));
}

TEST_F(OVPlaybackControllerTest, DestructionNotifiesNoDispatcher)
{
    controller_->setup(session_, video_, connection(1));
    host_.clearCalls();
    controller_.dec_reference();
    EXPECT_TRUE(controller_.isEmpty());
    EXPECT_TRUE(host_.calls().empty());
    EXPECT_EQ(1, host_.living("IConnection"));
}

TEST_F(OVPlaybackControllerTest, HasNoDescriptionBeforeItIsInitialised)
{
    OVPlaybackController controller;
    MediaInfo info;
    info.addSubMediaInfo(SubMediaInfo());
    EXPECT_EQ(0, controller.getMediaInfo(info));
    EXPECT_TRUE(info.getAllSubMediaInfo().empty());
}
