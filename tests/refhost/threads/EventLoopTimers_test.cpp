#include <gtest/gtest.h>

#include <chrono>
#include <thread>
#include <utility>

#include "tests/refhost/threads/LoopHelpers.h"

namespace refhost
{
namespace
{

using namespace std::chrono_literals;

TEST(EventLoopTimers, TimerRunsAgainAndAgain)
{
    Signal third;
    int times = 0;
    const auto start = std::chrono::steady_clock::now();
    EventLoop loop("test");
    loop.every(5ms,
               [&]
               {
                   if (++times == 3)
                   {
                       third.set();
                   }
               });
    ASSERT_TRUE(third.wait());
    EXPECT_GE(std::chrono::steady_clock::now() - start, 15ms);
}

TEST(EventLoopTimers, TimersRunInTheOrderInWhichTheyAreDue)
{
    Signal slowRan;
    int fast = 0;
    EventLoop loop("test");
    loop.every(40ms, [&] { slowRan.set(); });
    loop.every(10ms, [&] { fast += slowRan.isSet() ? 0 : 1; });
    ASSERT_TRUE(slowRan.wait());
    runOn(loop, [&] { EXPECT_GE(fast, 1); });
}

TEST(EventLoopTimers, EarlierTimerIsNotHeldUpByALaterOne)
{
    Signal early;
    EventLoop loop("test");
    loop.every(1h, [] {});
    loop.every(1ms, [&] { early.set(); });
    EXPECT_TRUE(early.wait());
}

TEST(EventLoopTimers, ATimerMayAddAnother)
{
    Signal added;
    EventLoop loop("test");
    bool once = true;
    loop.every(1ms,
               [&]
               {
                   if (std::exchange(once, false))
                   {
                       loop.every(1ms, [&] { added.set(); });
                   }
               });
    EXPECT_TRUE(added.wait());
}

TEST(EventLoopTimers, TimesMissedByABusyLoopAreLeftOut)
{
    int times = 0;
    EventLoop loop("test");
    runOn(loop,
          [&]
          {
              loop.every(10ms, [&] { ++times; });
              std::this_thread::sleep_for(100ms);  // the loop is what must be busy here
          });
    runOn(loop, [] {});
    runOn(loop, [&] { EXPECT_LE(times, 2); });
}

}  // namespace
}  // namespace refhost
