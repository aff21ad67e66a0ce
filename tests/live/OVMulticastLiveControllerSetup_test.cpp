#include <gtest/gtest.h>

#include "tests/AllocationCounter.h"
#include "tests/fakehost/FailingCalls.h"
#include "tests/live/MulticastFixture.h"

namespace
{

const char* const initFailure =
    "OVMulticastLiveController::setup->PLiveDispatcherMgr->initLiveDispatcher Fail!, return nRet = ";
const char* const connectFailure =
    "OVMulticastLiveController::setup->PLiveDispatcherMgr->addRTPConnection Fail!, return nRet = ";
const char* const recordFailure =
    "OVMulticastLiveController generateMulticastSessionId Fail!, return nRet = ";

class MulticastSetup : public MulticastFixture
{
protected:
    ~MulticastSetup() noexcept override {}
};

}  // namespace

TEST_F(MulticastSetup, FirstOneMakesSharedSessionAndRecordInThisOrder)
{
    CapturedOutput output;
    EXPECT_EQ(0, setup(session_, video_));
    EXPECT_EQ("", output.text());
    EXPECT_EQ((Calls{
                  token_,
                  "LiveDispatcherMgr::findSession(multicast 5-6)",
                  "LiveDispatcherMgr::initSession(multicast 5-6, 5, 6, multicast parsed 5 6, 1364)",
                  "LiveDispatcherMgr::addSessionConnection(multicast 5-6, trackID=0, kind 3)",
                  "LiveDispatcherMgr::findMulticastSessionId(multicast 5-6)",
                  "LiveDispatcherMgr::addMulticastSessionParam(multicast 5-6, [], [])",
                  "LiveDispatcherMgr::getMulticastSessionParam(multicast 5-6)",
                  "LiveDispatcherMgr::addMulticastSessionParam(multicast 5-6, [session], [trackID=0@any])",
              }),
              host_.calls());
}

TEST_F(MulticastSetup, SecondMemberOfTheSameTrackSharesSessionAndTrack)
{
    ASSERT_EQ(0, setup("one", video_));
    host_.clearCalls();
    EXPECT_EQ(0, setup("two", video_));
    EXPECT_EQ((Calls{
                  token_,
                  "LiveDispatcherMgr::findSession(multicast 5-6)",
                  "LiveDispatcherMgr::addSessionConnection(multicast 5-6, trackID=0, kind 3)",
                  "LiveDispatcherMgr::findMulticastSessionId(multicast 5-6)",
                  "LiveDispatcherMgr::getMulticastSessionParam(multicast 5-6)",
                  "LiveDispatcherMgr::addMulticastSessionParam(multicast 5-6, [one two], [trackID=0@any])",
              }),
              host_.calls());
    EXPECT_EQ("[one two] [trackID=0@any]", record());
}

TEST_F(MulticastSetup, ControllersOfOneStreamShareTheSessionToo)
{
    const SafePointer<IRTSPController> another = make();
    host_.clearCalls();
    ASSERT_EQ(0, setup("one", video_));
    ASSERT_EQ(0, another->setup("two", video_, connection(3)));
    EXPECT_EQ(1u, host_.callCount("LiveDispatcherMgr::initSession"));
    EXPECT_EQ("[one two] [trackID=0@any]", record());
}

TEST_F(MulticastSetup, SecondTrackOfAMemberAddsTheTrackAlone)
{
    ASSERT_EQ(0, setup(session_, video_));
    ASSERT_EQ(0, setup(session_, audio_));
    EXPECT_EQ("[session] [trackID=0@any trackID=1@any]", record());
    ASSERT_EQ(0, setup(session_, video_));
    EXPECT_EQ("[session] [trackID=0@any trackID=1@any]", record()) << "a repeated setup adds nothing";
}

TEST_F(MulticastSetup, KnownTrackIsNotMadeAgain)
{
    OVMulticastLiveControlerFactory factory;
    factory.setThirdPlatType(type);
    SafePointer<IRTSPController> longUrl;
    ASSERT_EQ(0, factory.createMedia(std::string(1000, 'x'), longUrl, true));
    ASSERT_EQ(0, setup(session_, video_));
    host_.recordCalls(false);
    const auto allocationsOf = [this](const SafePointer<IRTSPController>& controller)
    {
        const SafePointer<IConnection> client = connection(3);
        const AllocationCounter counter;
        EXPECT_EQ(0, controller->setup(session_, video_, client));
        return counter.count();
    };
    EXPECT_EQ(allocationsOf(controller_), allocationsOf(longUrl)) << "the URL is copied for nothing";
}

TEST_F(MulticastSetup, BackChannelIsATrackAsOthersAre)
{
    EXPECT_EQ(0, setup(session_, talkBack_));
    EXPECT_EQ(1u, host_.callCount("LiveDispatcherMgr::addSessionConnection"));
    EXPECT_FALSE(OVAudioBackDispatcherMgr::getInstance()->findSession(session_));
}

TEST_F(MulticastSetup, UdpUnicastTakesItsPacketSizeFromTheMtuAndTheOthersDoNot)
{
    const char* const sizes[] = {"1364", "1424", "1364"};
    for (int kind : {1, 2, 3})
    {
        FakeLiveSessions::clear();
        LiveDispatcherMgr::getInstance()->getMTUParam().setMTUValue(1500);
        host_.clearCalls();
        EXPECT_EQ(0, setup(session_, video_, kind));
        EXPECT_EQ(kind == 2 ? 1u : 0u, host_.callCount("LiveDispatcherMgr::getMTUParam"));
        const std::string call = host_.calls()[kind == 2 ? 3 : 2];
        EXPECT_EQ("LiveDispatcherMgr::initSession(multicast 5-6, 5, 6, multicast parsed 5 6, " +
                      std::string(sizes[kind - 1]) + ")",
                  call);
    }
}

TEST_F(MulticastSetup, EachFailingCallEndsItWithItsCodeAndLine)
{
    // The result of the fifth one, which adds a new record, is ignored: the next step misses the record.
    struct Step
    {
        const char* line;
        const char* record;
    };
    const Step steps[] = {
        {recordFailure, ""}, {initFailure, ""},        {connectFailure, ""},
        {recordFailure, ""}, {recordFailure, "[] []"}, {recordFailure, "[session] [trackID=0@any]"},
    };
    const auto attempt = [this] { return setup(session_, video_); };
    const auto good = FailingCalls(6)
                          .before(FakeLiveSessions::clear)
                          .during(attempt,
                                  [&](const FailingCalls::Attempt& failed)
                                  {
                                      const Step& step = steps[failed.nth - 1];
                                      const int code = failed.nth == 4 ? -904 : failed.code;
                                      EXPECT_EQ(code, failed.result);
                                      EXPECT_EQ(step.line + std::to_string(code) + "\n", failed.printed);
                                      EXPECT_EQ(step.record, record());
                                  });
    EXPECT_EQ("", good.printed);
}

TEST_F(MulticastSetup, FailureOfTheTokenCallsNoDispatcher)
{
    host_.script("MulticastSessionToken::generateMulticastSessionId", {-511});
    CapturedOutput output;
    EXPECT_EQ(-511, setup(session_, video_));
    EXPECT_EQ(failure("generateMulticastSessionId", -511), output.text());
    EXPECT_EQ((Calls{token_}), host_.calls());
    EXPECT_EQ(0, host_.living("IConnection"));
}
