#include "refhost/threads/LoopMonitor.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "refhost/threads/EventLoop.h"
#include "tests/refhost/threads/LoopHelpers.h"

namespace refhost
{
namespace
{

using std::chrono::seconds;

MonotonicTime at(int second)
{
    return MonotonicTime(seconds(1000 + second));
}

TEST(LoopMonitor, LoopThatTurnsIsNotWaitedFor)
{
    EventLoop loop("turns");
    LoopMonitor monitor;
    monitor.add(loop, "turns");
    for (int second = 0; second < 5; ++second)
    {
        EXPECT_TRUE(monitor.check(at(second)).empty());
        runOn(loop, [] {});
    }
    monitor.remove(loop);
}

TEST(LoopMonitor, WaitOfALoopThatHangsGrows)
{
    EventLoop good("good");
    EventLoop bad("bad");
    LoopMonitor monitor;
    monitor.add(good, "good");
    monitor.add(bad, "bad");
    HangingTurn turn(bad);
    EXPECT_TRUE(monitor.check(at(0)).empty());
    for (int second = 1; second < 4; ++second)
    {
        runOn(good, [] {});
        const auto waiting = monitor.check(at(second));
        ASSERT_EQ(1u, waiting.size());
        EXPECT_EQ("bad", waiting[0].name);
        EXPECT_EQ(seconds(second), waiting[0].waited);
    }
    turn.finish();
    runOn(good, [] {});
    EXPECT_TRUE(monitor.check(at(4)).empty());
    monitor.remove(good);
    monitor.remove(bad);
}

TEST(LoopMonitor, LagIsHowLongTheLastTaskWaited)
{
    EventLoop loop("late");
    LoopMonitor monitor;
    monitor.add(loop, "late");
    HangingTurn turn(loop);
    const auto before = std::chrono::steady_clock::now();
    monitor.check(at(0));
    monitor.check(at(1));
    // It hangs for a second by the clock of those who check.
    ASSERT_EQ(1u, monitor.lags().size());
    EXPECT_EQ(seconds(1), monitor.lags()[0].waited);
    turn.finish();
    runOn(loop, [] {});
    monitor.check(at(2));
    EXPECT_EQ("late", monitor.lags()[0].name);
    EXPECT_LE(monitor.lags()[0].waited, std::chrono::steady_clock::now() - before);
    runOn(loop, [] {});
    monitor.remove(loop);
    EXPECT_TRUE(monitor.lags().empty());
}

TEST(LoopMonitor, TimeInWhichNobodyCheckedIsNoHang)
{
    EventLoop loop("stopped");
    LoopMonitor monitor;
    monitor.add(loop, "stopped");
    HangingTurn turn(loop);
    monitor.check(at(0));
    const auto waiting = monitor.check(at(3600));
    ASSERT_EQ(1u, waiting.size());
    EXPECT_EQ(seconds(2), waiting[0].waited);
    turn.finish();
    monitor.remove(loop);
}

TEST(LoopMonitor, RemovedLoopIsForgotten)
{
    LoopMonitor monitor;
    EventLoop loop("gone");
    monitor.add(loop, "gone");
    HangingTurn turn(loop);
    monitor.check(at(0));
    monitor.remove(loop);
    EXPECT_TRUE(monitor.check(at(1)).empty());
}

TEST(LoopMonitor, EveryEventLoopOfTheProcessIsKnownWhileItLives)
{
    const auto knows = [](const std::string& name, int second)
    {
        const auto waiting = LoopMonitor::instance().check(at(second));
        return std::any_of(waiting.begin(), waiting.end(),
                           [&name](const auto& loop) { return loop.name == name; });
    };
    {
        EventLoop loop("a loop of its own");
        HangingTurn turn(loop);
        EXPECT_FALSE(knows("a loop of its o", 0));
        EXPECT_TRUE(knows("a loop of its o", 1));
    }
    EXPECT_FALSE(knows("a loop of its o", 2));
}

}  // namespace
}  // namespace refhost
