#include <gtest/gtest.h>

#include "tests/fakehost/FailingCalls.h"
#include "tests/fakehost/FakeStatus.h"
#include "tests/live/MulticastFixture.h"

namespace
{

class MulticastMethods : public MulticastFixture
{
protected:
    ~MulticastMethods() noexcept override {}

    /// What the methods that play a track and ask for its SSRC have in common is tested with both.
    int method(const std::string& operation, const std::string& sessionId, const std::string& trackId)
    {
        return operation == "play" ? controller_->play(sessionId, trackId)
                                   : controller_->getTrackSSRC(sessionId, trackId, ssrc_);
    }

    int ssrc_ = -1;
};

class MulticastTrackMethods : public MulticastMethods, public testing::WithParamInterface<const char*>
{
protected:
    ~MulticastTrackMethods() noexcept override {}
};

class MulticastPause : public MulticastMethods
{
protected:
    ~MulticastPause() noexcept override {}
};

}  // namespace

TEST_P(MulticastTrackMethods, GoToTheSharedSession)
{
    ASSERT_EQ(0, setup(session_, video_));
    host_.clearCalls();
    CapturedOutput output;
    EXPECT_EQ(0, method(GetParam(), session_, video_));
    EXPECT_EQ("", output.text());
    EXPECT_EQ((Calls{
                  token_,
                  "LiveDispatcherMgr::findMulticastSessionId(multicast 5-6)",
                  "LiveDispatcherMgr::getMulticastSessionParam(multicast 5-6)",
                  std::string("LiveDispatcherMgr::") + GetParam() + "(multicast 5-6, trackID=0)",
              }),
              host_.calls());
}

TEST_P(MulticastTrackMethods, EndWithTheCodeAndLineOfEachFailingCall)
{
    ASSERT_EQ(0, setup(session_, video_));
    const std::string lines[] = {
        failure("generateMulticastSessionId", -501),
        failure("generateMulticastSessionId", -502),
        "",
    };
    FailingCalls(3).during([this] { return method(GetParam(), session_, video_); },
                           [&](const FailingCalls::Attempt& attempt)
                           {
                               EXPECT_EQ(attempt.code, attempt.result);
                               EXPECT_EQ(lines[attempt.nth - 1], attempt.printed);
                           });
}

TEST_P(MulticastTrackMethods, AreNotFoundWithoutSharedSession)
{
    CapturedOutput output;
    EXPECT_EQ(-8, method(GetParam(), session_, video_));
    EXPECT_EQ(failure("findMulticastSessionId", 0), output.text());
    EXPECT_EQ((Calls{token_, "LiveDispatcherMgr::findMulticastSessionId(multicast 5-6)"}), host_.calls());
}

TEST_P(MulticastTrackMethods, AreNotFoundForANonMember)
{
    ASSERT_EQ(0, setup(session_, video_));
    CapturedOutput output;
    EXPECT_EQ(-8, method(GetParam(), "stranger", video_));
    EXPECT_EQ(failure("findMemberSession", 0), output.text());
    EXPECT_EQ(0u, host_.callCount(std::string("LiveDispatcherMgr::") + GetParam()));
}

TEST_P(MulticastTrackMethods, AreNotFoundForATrackThatNobodySetUp)
{
    ASSERT_EQ(0, setup(session_, video_));
    for (const std::string& track : {audio_, talkBack_, std::string()})
    {
        CapturedOutput output;
        EXPECT_EQ(-8, method(GetParam(), session_, track)) << track;
        EXPECT_EQ(failure("findMulticastSessionTrackParam", 0), output.text());
    }
    EXPECT_EQ(0u, host_.callCount(std::string("LiveDispatcherMgr::") + GetParam()));
}

TEST_P(MulticastTrackMethods, ServeAMemberWhoseTrackAnotherOneSetUp)
{
    ASSERT_EQ(0, setup("one", video_));
    ASSERT_EQ(0, setup("two", audio_));
    EXPECT_EQ(0, method(GetParam(), "two", video_));
}

INSTANTIATE_TEST_SUITE_P(Both, MulticastTrackMethods, testing::Values("play", "getTrackSSRC"),
                         [](const testing::TestParamInfo<const char*>& method) { return method.param; });

TEST_F(MulticastMethods, MembersSeeOneSsrc)
{
    ASSERT_EQ(0, setup("one", video_));
    ASSERT_EQ(0, setup("two", video_));
    int first = 0;
    int second = 0;
    EXPECT_EQ(0, controller_->getTrackSSRC("one", video_, first));
    EXPECT_EQ(0, controller_->getTrackSSRC("two", video_, second));
    EXPECT_GT(first, 3000);
    EXPECT_EQ(first, second);
}

TEST_F(MulticastMethods, SsrcIsUnchangedOnFailure)
{
    int ssrc = -1;
    CapturedOutput output;
    EXPECT_EQ(-8, controller_->getTrackSSRC(session_, video_, ssrc));
    EXPECT_EQ(-1, ssrc);
}

TEST_F(MulticastMethods, SessionInformationIsWhatTheUrlNamed)
{
    GeneralSessionInfo info;
    EXPECT_EQ(0, controller_->getSessionInfo(info));
    EXPECT_EQ(5, info.getCameraID());
    EXPECT_EQ(6, info.getStreamID());
    EXPECT_TRUE(info.getIsMulticastFlag());
    EXPECT_TRUE(host_.calls().empty());
}

TEST_F(MulticastMethods, SessionInformationOfTheDevicesOwnCodecIsNotMulticast)
{
    OVMulticastLiveController controller;
    const int orvaneType = type + 1;
    MediaUrlFactoryMap::getInstance()->registerFactory(
        orvaneType, SafePointer<IMediaUrlFactory>(new OrvaneMediaUrlFactory));
    std::string key;
    EXPECT_EQ(0, controller.parseMediaUrl(orvaneType, "orv/multicast/3/1", key));
    MediaUrlFactoryMap::getInstance()->unregisterFactory(orvaneType);
    GeneralSessionInfo info;
    info.setCameraID(3);
    info.setStreamID(1);
    info.setIsMulticastFlag(true);
    EXPECT_EQ(0, controller.getSessionInfo(info));
    EXPECT_EQ(0, info.getCameraID());
    EXPECT_EQ(0, info.getStreamID());
    EXPECT_FALSE(info.getIsMulticastFlag());
}

TEST_F(MulticastPause, OfTheOnlyMemberPausesTheSharedTrack)
{
    ASSERT_EQ(0, setup(session_, video_));
    host_.clearCalls();
    EXPECT_EQ(0, controller_->pause(session_, video_));
    EXPECT_EQ((Calls{
                  token_,
                  "LiveDispatcherMgr::findMulticastSessionId(multicast 5-6)",
                  "LiveDispatcherMgr::getMulticastSessionParam(multicast 5-6)",
                  "LiveDispatcherMgr::pause(multicast 5-6, trackID=0)",
              }),
              host_.calls());
}

TEST_F(MulticastPause, OfOneOfSeveralDoesNothing)
{
    ASSERT_EQ(0, setup("one", video_));
    for (const char* member : {"two", "three"})
    {
        ASSERT_EQ(0, setup(member, video_));
        EXPECT_EQ(0, controller_->pause("one", video_));
        EXPECT_EQ(0, controller_->pause("two", "no such track"));
    }
    EXPECT_EQ(0u, host_.callCount("LiveDispatcherMgr::pause"));
    EXPECT_EQ("[one two three] [trackID=0@any]", record());
}

TEST_F(MulticastPause, TakesEffectAgainWhenTheOtherOneHasGone)
{
    ASSERT_EQ(0, setup("one", video_));
    ASSERT_EQ(0, setup("two", video_));
    ASSERT_EQ(0, controller_->stop("one", video_));
    EXPECT_EQ(0, controller_->pause("two", video_));
    EXPECT_EQ(1u, host_.callCount("LiveDispatcherMgr::pause"));
}

TEST_F(MulticastPause, OfATrackThatWasNeverSetUpReachesTheDispatcher)
{
    ASSERT_EQ(0, setup(session_, video_));
    EXPECT_EQ(fakeTrackUnknown, controller_->pause(session_, audio_));
}

TEST_F(MulticastPause, OfWhatIsNotThereIsNotFoundSilently)
{
    CapturedOutput output;
    EXPECT_EQ(-8, controller_->pause(session_, video_)) << "no shared session";
    ASSERT_EQ(0, setup(session_, video_));
    EXPECT_EQ(-8, controller_->pause("stranger", video_));
    EXPECT_EQ(0u, host_.callCount("LiveDispatcherMgr::pause"));
    EXPECT_EQ("", output.text());
}

TEST_F(MulticastPause, EndsWithTheCodeOfEachFailingCallAndPrintsTheTokensAlone)
{
    ASSERT_EQ(0, setup(session_, video_));
    const std::string lines[] = {failure("generateMulticastSessionId", -501), "", ""};
    FailingCalls(3).during([this] { return controller_->pause(session_, video_); },
                           [&](const FailingCalls::Attempt& attempt)
                           {
                               EXPECT_EQ(attempt.code, attempt.result);
                               EXPECT_EQ(lines[attempt.nth - 1], attempt.printed);
                           });
}
