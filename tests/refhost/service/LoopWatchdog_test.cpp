#include "refhost/service/LoopWatchdog.h"

#include <gtest/gtest.h>

#include "tests/CapturedErrors.h"
#include "tests/refhost/base/ManualClock.h"
#include "tests/refhost/service/NotifySocket.h"
#include "tests/refhost/threads/LoopHelpers.h"

namespace refhost
{
namespace
{

/// A watchdog of so many seconds, and one loop.
class LoopWatchdogTest : public testing::Test
{
protected:
    LoopWatchdogTest()
    {
        monitor_.add(loop_, "only");
    }
    ~LoopWatchdogTest() override
    {
        monitor_.remove(loop_);
    }

    void start(const std::string& seconds)
    {
        ::setenv("WATCHDOG_USEC", (seconds + "000000").c_str(), 1);
        manager_ = ServiceManager::fromEnvironment();
        watchdog_.emplace(manager_, monitor_, clock_);
    }

    /// \returns whether the watchdog was fed
    bool checkAfterASecond()
    {
        clock_.advance(std::chrono::seconds(1));
        watchdog_->check();
        return socket_.next() == "WATCHDOG=1";
    }

    NotifySocket socket_;
    test::ManualClock clock_;
    EventLoop loop_{"only"};
    LoopMonitor monitor_;
    ServiceManager manager_;
    std::optional<LoopWatchdog> watchdog_;
};

TEST_F(LoopWatchdogTest, IsFedWhileTheLoopTurns)
{
    start("30");
    for (int i = 0; i < 60; ++i)
    {
        EXPECT_TRUE(checkAfterASecond());
        runOn(loop_, [] {});
    }
}

TEST_F(LoopWatchdogTest, StarvesWhileALoopHangsAndIsFedWhenItTurnsAgain)
{
    start("30");
    CapturedErrors errors;
    HangingTurn turn(loop_);
    int fed = 0;
    while (checkAfterASecond())
    {
        ++fed;
    }
    EXPECT_EQ(10, fed);
    for (int i = 0; i < 100; ++i)
    {
        EXPECT_FALSE(checkAfterASecond());
    }
    turn.finish();
    EXPECT_TRUE(checkAfterASecond());
    EXPECT_EQ(1u, errors
                      .linesWith("the event loop only hangs: one of its turns takes longer than 10 s; the "
                                 "service manager will restart the server")
                      .size());
}

TEST_F(LoopWatchdogTest, FastWatchdogShortensTheTurn)
{
    start("4");
    HangingTurn turn(loop_);
    EXPECT_TRUE(checkAfterASecond());
    EXPECT_TRUE(checkAfterASecond());
    EXPECT_FALSE(checkAfterASecond());
}

TEST_F(LoopWatchdogTest, WithoutAManagerAHangIsLoggedOnly)
{
    ServiceManager none;
    watchdog_.emplace(none, monitor_, clock_);
    CapturedErrors errors;
    HangingTurn turn(loop_);
    for (int i = 0; i < 30; ++i)
    {
        EXPECT_FALSE(checkAfterASecond());
    }
    EXPECT_EQ(1u,
              errors.linesWith("the event loop only hangs: one of its turns takes longer than 10 s").size());
}

}  // namespace
}  // namespace refhost
