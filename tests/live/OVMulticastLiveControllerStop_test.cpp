#include <gtest/gtest.h>

#include "tests/fakehost/FailingCalls.h"
#include "tests/fakehost/FakeStatus.h"
#include "tests/live/MulticastFixture.h"

namespace
{

const char* const success = "stop any/trackID=0 success\n";

class MulticastStop : public MulticastFixture
{
protected:
    ~MulticastStop() noexcept override {}
};

}  // namespace

TEST_F(MulticastStop, WithoutSharedSessionIsASuccess)
{
    CapturedOutput output;
    EXPECT_EQ(0, controller_->stop(session_, video_));
    EXPECT_EQ(success, output.text());
    EXPECT_EQ((Calls{token_, "LiveDispatcherMgr::findMulticastSessionId(multicast 5-6)"}), host_.calls());
}

TEST_F(MulticastStop, OfOneOfSeveralStoresTheShortenedListBackSilently)
{
    ASSERT_EQ(0, setup("one", video_));
    ASSERT_EQ(0, setup("two", video_));
    host_.clearCalls();
    CapturedOutput output;
    EXPECT_EQ(0, controller_->stop("one", video_));
    EXPECT_EQ("", output.text());
    EXPECT_EQ((Calls{
                  token_,
                  "LiveDispatcherMgr::findMulticastSessionId(multicast 5-6)",
                  "LiveDispatcherMgr::getMulticastSessionParam(multicast 5-6)",
                  "LiveDispatcherMgr::addMulticastSessionParam(multicast 5-6, [two], [trackID=0@any])",
              }),
              host_.calls());
    EXPECT_EQ(1, host_.living("IConnection")) << "the shared session goes on";
}

TEST_F(MulticastStop, OfTheLastMemberEndsTrackByTrackThenTheRecord)
{
    ASSERT_EQ(0, setup("one", video_));
    ASSERT_EQ(0, setup("two", audio_));
    ASSERT_EQ(0, controller_->stop("one", video_));
    host_.clearCalls();
    CapturedOutput output;
    EXPECT_EQ(0, controller_->stop("two", audio_));
    EXPECT_EQ("stop any/trackID=1 success\n", output.text());
    EXPECT_EQ((Calls{
                  token_,
                  "LiveDispatcherMgr::findMulticastSessionId(multicast 5-6)",
                  "LiveDispatcherMgr::getMulticastSessionParam(multicast 5-6)",
                  "LiveDispatcherMgr::deleteSessionConection(multicast 5-6, trackID=0)",
                  "LiveDispatcherMgr::deleteSessionConection(multicast 5-6, trackID=1)",
                  "LiveDispatcherMgr::deleteMulticastSessionParam(multicast 5-6)",
              }),
              host_.calls());
    EXPECT_EQ("", record());
    EXPECT_FALSE(LiveDispatcherMgr::getInstance()->findSession(sharedId));
    EXPECT_EQ(0, host_.living("IConnection"));
}

TEST_F(MulticastStop, OfOneTrackEndsTheMemberWithAllItsTracks)
{
    ASSERT_EQ(0, setup(session_, video_));
    ASSERT_EQ(0, setup(session_, audio_));
    CapturedOutput output;
    EXPECT_EQ(0, controller_->stop(session_, video_));
    EXPECT_EQ(0, controller_->stop(session_, audio_));
    EXPECT_EQ("stop any/trackID=0 success\nstop any/trackID=1 success\n", output.text());
    EXPECT_EQ(2u, host_.callCount("LiveDispatcherMgr::deleteSessionConection"));
    EXPECT_EQ(1u, host_.callCount("LiveDispatcherMgr::deleteMulticastSessionParam"));
}

TEST_F(MulticastStop, OfANonMemberKeepsTheMembersAndStoresTheRecord)
{
    ASSERT_EQ(0, setup(session_, video_));
    host_.clearCalls();
    CapturedOutput output;
    EXPECT_EQ(0, controller_->stop("stranger", video_));
    EXPECT_EQ("", output.text());
    EXPECT_EQ("LiveDispatcherMgr::addMulticastSessionParam(multicast 5-6, [session], [trackID=0@any])",
              host_.calls().back());
}

TEST_F(MulticastStop, FailureToStoreBackIsReturnedSilently)
{
    ASSERT_EQ(0, setup("one", video_));
    ASSERT_EQ(0, setup("two", video_));
    host_.script("LiveDispatcherMgr::addMulticastSessionParam", {-505});
    CapturedOutput output;
    EXPECT_EQ(-505, controller_->stop("one", video_));
    EXPECT_EQ("", output.text());
}

TEST_F(MulticastStop, OfTheLastMemberEndsWithTheCodeOfEachFailingCallAndKeepsTheRecord)
{
    // The result of the last one, the removal of the record, is ignored.
    const std::string lines[] = {failure("generateMulticastSessionId", -501), "", "", "", success};
    const char* const records[] = {
        "[session] [trackID=0@any trackID=1@any]", "[session] [trackID=0@any trackID=1@any]",
        "[] [trackID=0@any trackID=1@any]",        "[] [trackID=0@any trackID=1@any]",
        "[] [trackID=0@any trackID=1@any]",
    };
    const std::size_t deletions[] = {0, 0, 1, 2, 2};
    const auto share = [this]
    {
        FakeLiveSessions::clear();
        ASSERT_EQ(0, setup(session_, video_));
        ASSERT_EQ(0, setup(session_, audio_));
    };
    const auto stop = [this] { return controller_->stop(session_, video_); };
    const auto good = FailingCalls(5).before(share).during(
        stop,
        [&](const FailingCalls::Attempt& failed)
        {
            const int index = failed.nth - 1;
            EXPECT_EQ(failed.nth == 5 ? 0 : failed.code, failed.result);
            EXPECT_EQ(lines[index], failed.printed);
            EXPECT_EQ(deletions[index], host_.callCount("LiveDispatcherMgr::deleteSessionConection"));
            EXPECT_EQ(records[index], record());
        });
    EXPECT_EQ(success, good.printed);
    EXPECT_EQ("", record());
}

TEST_F(MulticastStop, AfterAFailureEndsWhatIsLeft)
{
    ASSERT_EQ(0, setup(session_, video_));
    host_.script("LiveDispatcherMgr::deleteSessionConection", {-506});
    EXPECT_EQ(-506, controller_->stop(session_, video_));
    CapturedOutput output;
    EXPECT_EQ(0, controller_->stop(session_, video_)) << "without members any caller is the last";
    EXPECT_EQ(success, output.text());
    EXPECT_EQ("", record());
}

TEST_F(MulticastStop, ThenSetupStartsAgain)
{
    ASSERT_EQ(0, setup(session_, video_));
    CapturedOutput output;
    ASSERT_EQ(0, controller_->stop(session_, video_));
    ASSERT_EQ(0, setup(session_, video_));
    EXPECT_EQ(2u, host_.callCount("LiveDispatcherMgr::initSession"));
    EXPECT_EQ("[session] [trackID=0@any]", record());
}
