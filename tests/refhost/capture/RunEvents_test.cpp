#include "refhost/capture/RunEvents.h"

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <string>

#include "refhost/capture/AbandonedRuns.h"

namespace refhost
{
namespace
{

using Clock = SourceRun::Clock;

class RunEventsTest : public testing::Test
{
protected:
    static constexpr const char* title = "camera 9/9";

    SourceRun::Events recording()
    {
        SourceRun::Events called;
        called.described = [this] { calls += "described "; };
        called.ended = [this](const SourceFailure& failure)
        { calls.append("ended:").append(failure.text).append(" "); };
        called.clockUnusable = [this](const std::string& why)
        { calls.append("clock:").append(why).append(" "); };
        called.stopped = [this] { calls += "stopped "; };
        return called;
    }

    void reportAll() const
    {
        events.described();
        events.clockUnusable("b");
        events.ended("a");
    }

    std::string calls;
    RunEvents events{title, recording()};
};

TEST_F(RunEventsTest, AreCalledWithTheirReasons)
{
    reportAll();
    EXPECT_EQ(calls, "described clock:b ended:a ");
    EXPECT_FALSE(events.isMuted());
}

TEST_F(RunEventsTest, OnlyTheEndIsCalledOnceStopped)
{
    EXPECT_TRUE(events.stop());
    EXPECT_FALSE(events.stop()) << "the second time";
    EXPECT_TRUE(events.isMuted());
    reportAll();
    EXPECT_EQ(calls, "");
    events.finish();
    EXPECT_EQ(calls, "stopped ");
}

TEST_F(RunEventsTest, NothingIsCalledOnceMuted)
{
    events.mute();
    EXPECT_TRUE(events.isMuted());
    reportAll();
    events.stop();
    events.finish();
    EXPECT_EQ(calls, "");
}

TEST_F(RunEventsTest, MissingEventsAreLeftOut)
{
    RunEvents none(title, SourceRun::Events());
    none.described();
    none.ended("");
    none.clockUnusable("");
    none.finish();
    EXPECT_TRUE(none.awaitEnd(Clock::now()));
}

TEST_F(RunEventsTest, EndIsWaitedForUpToTheDeadline)
{
    EXPECT_FALSE(events.awaitEnd(Clock::now()));
    auto waiting = std::async(std::launch::async,
                              [this] { return events.awaitEnd(Clock::now() + std::chrono::seconds(10)); });
    events.finish();
    EXPECT_TRUE(waiting.get());
}

TEST_F(RunEventsTest, AbandonedRunCountsUntilItsEnd)
{
    events.abandon();
    EXPECT_EQ(AbandonedRuns::instance().of(title), 1);
    events.finish();
    EXPECT_EQ(AbandonedRuns::instance().of(title), 0);
    events.abandon();
    EXPECT_EQ(AbandonedRuns::instance().of(title), 0) << "it has ended";
}

}  // namespace
}  // namespace refhost
