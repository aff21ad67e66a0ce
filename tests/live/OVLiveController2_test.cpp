#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "hostapi/live/LiveDispatcherMgr.h"
#include "tests/fakehost/FailingCalls.h"
#include "tests/fakehost/FakeStatus.h"
#include "tests/live/LiveControllerFixture.h"

namespace
{

using Calls = std::vector<std::string>;

const char* const initFailure =
    "OVLiveController2::setup->PLiveDispatcherMgr->initLiveDispatcher Fail!, return nRet = ";
const char* const connectFailure =
    "OVLiveController2::setup->PLiveDispatcherMgr->addRTPConnection Fail!, return nRet = ";

class OVLiveController2Test : public LiveControllerFixture<SecondForm>
{
protected:
    ~OVLiveController2Test() noexcept override {}

    static void setMtu(int bytes)
    {
        LiveDispatcherMgr::getInstance()->getMTUParam().setMTUValue(bytes);
    }

    /// The last argument of the session's or, for talk-back, the dispatcher's making.
    std::string payloadSizeOf(const std::string& trackId, int kind)
    {
        FakeLiveSessions::clear();
        OVAudioBackDispatcherMgr::getInstance()->clearAllSession();
        setMtu(mtu_);
        host_.clearCalls();
        CapturedOutput output;
        EXPECT_EQ(0, controller_->setup(session_, trackId, connection(kind)));
        for (const std::string& call : host_.calls())
        {
            if (call.find("::init") != std::string::npos)
            {
                const std::size_t blank = call.rfind(' ');
                return call.substr(blank + 1, call.size() - blank - 2);
            }
        }
        return "nothing was made";
    }

    int mtu_ = 1500;
};

}  // namespace

TEST_F(OVLiveController2Test, SetupMakesTheSessionOfTheWholeDescriptionThenAttachesTheConnection)
{
    EXPECT_EQ(0, controller_->setup(session_, video_, connection(1)));
    EXPECT_EQ((Calls{
                  "LiveDispatcherMgr::findSession(session)",
                  "LiveDispatcherMgr::initSession(session, 12, 0, orv/live/12/0, 1364)",
                  "LiveDispatcherMgr::addSessionConnection(session, trackID=0, kind 1)",
              }),
              host_.calls());
    EXPECT_EQ(1, host_.living("IConnection"));
}

TEST_F(OVLiveController2Test, UdpUnicastTakesItsPacketSizeFromTheMtuAndTheOthersDoNotAsk)
{
    EXPECT_EQ("1424", payloadSizeOf(video_, 2));
    EXPECT_EQ(1u, host_.callCount("LiveDispatcherMgr::getMTUParam"));
    for (int kind : {1, 3})
    {
        EXPECT_EQ("1364", payloadSizeOf(video_, kind));
    }
    mtu_ = 576;
    EXPECT_EQ("500", payloadSizeOf(video_, 2));
    EXPECT_EQ("1364", payloadSizeOf(video_, 1));
    mtu_ = 0;
    EXPECT_EQ("-76", payloadSizeOf(video_, 2)) << "what is too small is the dispatcher's to judge";
}

TEST_F(OVLiveController2Test, TalkBackHasThePacketSizeOfItsTransportToo)
{
    EXPECT_EQ("1424", payloadSizeOf(talkBack_, 2));
    EXPECT_EQ("1364", payloadSizeOf(talkBack_, 1));
    EXPECT_EQ("1364", payloadSizeOf(talkBack_, 3));
    EXPECT_FALSE(LiveDispatcherMgr::getInstance()->findSession(session_)) << "it makes no live session";
}

TEST_F(OVLiveController2Test, SecondTrackJoinsTheSessionAsItIs)
{
    setMtu(1500);
    ASSERT_EQ(0, controller_->setup(session_, video_, connection(2)));
    host_.clearCalls();
    EXPECT_EQ(0, controller_->setup(session_, audio_, connection(1)));
    EXPECT_EQ((Calls{
                  "LiveDispatcherMgr::findSession(session)",
                  "LiveDispatcherMgr::addSessionConnection(session, trackID=1, kind 1)",
              }),
              host_.calls());
}

TEST_F(OVLiveController2Test, AnotherRtspSessionHasASessionOfItsOwn)
{
    ASSERT_EQ(0, controller_->setup("one", video_, connection(1)));
    ASSERT_EQ(0, controller_->setup("two", video_, connection(1)));
    EXPECT_EQ(2u, host_.callCount("LiveDispatcherMgr::initSession"));
    CapturedOutput output;
    EXPECT_EQ(0, controller_->stop("one", video_));
    EXPECT_EQ(0, controller_->play("two", video_));
    EXPECT_EQ(fakeTrackUnknown, controller_->play("one", video_));
}

TEST_F(OVLiveController2Test, EachFailingCallEndsSetupWithItsCodeAndLine)
{
    const char* const lines[] = {initFailure, connectFailure};
    const auto setup = [this] { return controller_->setup(session_, video_, connection(2)); };
    const auto good =
        FailingCalls(2)
            .before(FakeLiveSessions::clear)
            .during(setup,
                    [&](const FailingCalls::Attempt& attempt)
                    {
                        EXPECT_EQ(attempt.code, attempt.result);
                        EXPECT_EQ(lines[attempt.nth - 1] + std::to_string(attempt.code) + "\n",
                                  attempt.printed);
                        EXPECT_EQ(static_cast<std::size_t>(attempt.nth) + 2, host_.calls().size())
                            << "nothing is called after the failure";
                        EXPECT_EQ(0, host_.living("IConnection"));
                    });
    EXPECT_EQ("", good.printed);
    EXPECT_EQ(1, host_.living("IConnection")) << "the dispatcher keeps the connection of the good setup";
}

TEST_F(OVLiveController2Test, SetupAfterARefusedConnectionUsesTheSessionThatWasMade)
{
    host_.script("LiveDispatcherMgr::addSessionConnection", {-503});
    {
        CapturedOutput output;
        EXPECT_EQ(-503, controller_->setup(session_, video_, connection(1)));
    }
    EXPECT_EQ(0, controller_->setup(session_, video_, connection(1)));
    EXPECT_EQ(1u, host_.callCount("LiveDispatcherMgr::initSession"));
}

TEST_F(OVLiveController2Test, MethodsGoToTheDispatcher)
{
    ASSERT_EQ(0, controller_->setup(session_, video_, connection(1)));
    host_.clearCalls();
    EXPECT_EQ(0, controller_->play(session_, video_));
    EXPECT_EQ(0, controller_->pause(session_, video_));
    int ssrc = -1;
    EXPECT_EQ(0, controller_->getTrackSSRC(session_, video_, ssrc));
    EXPECT_GT(ssrc, 3000);
    CapturedOutput output;
    EXPECT_EQ(0, controller_->stop(session_, video_));
    EXPECT_EQ("stop rtsp://192.0.2.10/orv/live/12/0/trackID=0 success\n", output.text());
    EXPECT_EQ((Calls{
                  "LiveDispatcherMgr::play(session, trackID=0)",
                  "LiveDispatcherMgr::pause(session, trackID=0)",
                  "LiveDispatcherMgr::getTrackSSRC(session, trackID=0)",
                  "LiveDispatcherMgr::deleteSessionConection(session, trackID=0)",
              }),
              host_.calls());
    EXPECT_EQ(0, host_.living("IConnection"));
}

TEST_F(OVLiveController2Test, MethodsPassEveryResultOn)
{
    ASSERT_EQ(0, controller_->setup(session_, video_, connection(1)));
    host_.script("LiveDispatcherMgr::play", {-501});
    host_.script("LiveDispatcherMgr::pause", {-502});
    host_.script("LiveDispatcherMgr::getTrackSSRC", {-503});
    host_.script("LiveDispatcherMgr::deleteSessionConection", {-504, 17});
    int ssrc = -1;
    EXPECT_EQ(-501, controller_->play(session_, video_));
    EXPECT_EQ(-502, controller_->pause(session_, video_));
    EXPECT_EQ(-503, controller_->getTrackSSRC(session_, video_, ssrc));
    EXPECT_EQ(-1, ssrc);
    CapturedOutput output;
    EXPECT_EQ(-504, controller_->stop(session_, video_));
    EXPECT_EQ(17, controller_->stop(session_, video_));
}

TEST_F(OVLiveController2Test, StopOfAnUnknownSessionPrintsItsSuccessAndReturnsTheDispatchersCode)
{
    CapturedOutput output;
    EXPECT_EQ(fakeTrackUnknown, controller_->stop("no such session", video_));
    EXPECT_EQ("stop rtsp://192.0.2.10/orv/live/12/0/trackID=0 success\n", output.text());
}

TEST_F(OVLiveController2Test, StopOfTalkBackPrintsNoSuccess)
{
    CapturedOutput output;
    ASSERT_EQ(0, controller_->setup(session_, talkBack_, connection(1)));
    EXPECT_EQ(0, controller_->stop(session_, talkBack_));
    EXPECT_EQ(std::string::npos, output.text().find("success"));
    EXPECT_EQ(0u, host_.callCount("LiveDispatcherMgr::deleteSessionConection"));
}

TEST_F(OVLiveController2Test, TalkBackNeedsNoLiveDispatcherButForTheMtu)
{
    FakeLiveSessions::haveNoDispatcher();
    CapturedOutput output;
    EXPECT_EQ(0, controller_->setup("one", talkBack_, connection(1)));
    EXPECT_EQ(0, controller_->setup("two", talkBack_, connection(3)));
    EXPECT_THROW(controller_->setup("three", talkBack_, connection(2)), OVRuntimeError);
}
