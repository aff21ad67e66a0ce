#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "tests/refhost/threads/LoopHelpers.h"

namespace refhost
{
namespace
{

using namespace std::chrono_literals;

TEST(EventLoopTimers, TimerRunsAgainAndAgainUntilCancelled)
{
    EventLoop loop("test");
    Signal third;
    int times = 0;
    const auto start = std::chrono::steady_clock::now();
    const int timer = loop.every(5,
                                 [&]
                                 {
                                     if (++times == 3)
                                     {
                                         third.set();
                                     }
                                 });
    EXPECT_GT(timer, 0);
    ASSERT_TRUE(third.wait());
    EXPECT_GE(std::chrono::steady_clock::now() - start, 15ms);
    loop.cancel(timer);
    const int timesAtCancel = times;
    // A later timer of the same interval would come after the cancelled one.
    Signal later;
    const int other = loop.every(5, [&] { later.set(); });
    ASSERT_TRUE(later.wait());
    EXPECT_EQ(timesAtCancel, times);
    loop.cancel(other);
}

TEST(EventLoopTimers, EarlierTimerIsNotHeldUpByALaterOne)
{
    EventLoop loop("test");
    Signal early;
    const int late = loop.every(3600 * 1000, [] {});
    const int soon = loop.every(1, [&] { early.set(); });
    EXPECT_TRUE(early.wait());
    loop.cancel(late);
    loop.cancel(soon);
}

TEST(EventLoopTimers, TimerMayCancelItself)
{
    EventLoop loop("test");
    int times = 0;
    int timer = 0;
    Signal done;
    runOn(loop,
          [&]
          {
              timer = loop.every(1,
                                 [&]
                                 {
                                     ++times;
                                     loop.cancel(timer);
                                     done.set();
                                 });
          });
    ASSERT_TRUE(done.wait());
    Signal later;
    const int other = loop.every(2, [&] { later.set(); });
    ASSERT_TRUE(later.wait());
    runOn(loop, [&] { EXPECT_EQ(1, times); });
    loop.cancel(other);
}

TEST(EventLoopTimers, TimesMissedByABusyLoopAreLeftOut)
{
    EventLoop loop("test");
    int times = 0;
    int timer = 0;
    runOn(loop,
          [&]
          {
              timer = loop.every(10, [&] { ++times; });
              std::this_thread::sleep_for(100ms);  // the loop is what must be busy here
          });
    runOn(loop, [] {});
    runOn(loop, [&] { EXPECT_LE(times, 2); });
    loop.cancel(timer);
}

}  // namespace
}  // namespace refhost
