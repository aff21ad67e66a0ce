#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <thread>
#include <utility>

#include "tests/refhost/threads/LoopHelpers.h"

namespace refhost
{
namespace
{

using namespace std::chrono_literals;

TEST(EventLoopTimers, TimerRunsRepeatedly)
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

TEST(EventLoopTimers, EarlierTimerDoesNotWaitForALaterOne)
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

TEST(EventLoopTimers, RunsMissedByABusyLoopAreSkipped)
{
    int times = 0;
    EventLoop loop("test");
    runOn(loop,
          [&]
          {
              loop.every(10ms, [&] { ++times; });
              std::this_thread::sleep_for(100ms);  // keeps the loop itself busy
          });
    runOn(loop, [] {});
    runOn(loop, [&] { EXPECT_LE(times, 2); });
}

TEST(EventLoopTimers, ATimerOfAfterRunsOnceAndNotTooEarly)
{
    Signal later;
    int times = 0;
    const auto start = std::chrono::steady_clock::now();
    EventLoop loop("test");
    loop.after(5ms,
               [&]
               {
                   ++times;
                   EXPECT_GE(std::chrono::steady_clock::now() - start, 5ms);
               });
    loop.after(30ms, [&] { later.set(); });
    ASSERT_TRUE(later.wait());
    runOn(loop, [&] { EXPECT_EQ(times, 1); });
}

TEST(EventLoopTimers, ACancelledTimerDoesNotRun)
{
    Signal later;
    EventLoop loop("test");
    bool ran = false;
    runOn(loop,
          [&]
          {
              const EventLoop::TimerId timer = loop.after(-1s, [&] { ran = true; });
              loop.after(0ms, [&] { later.set(); });
              loop.cancel(timer);
              loop.cancel(timer);
          });
    ASSERT_TRUE(later.wait());
    runOn(loop, [&] { EXPECT_FALSE(ran); });
}

TEST(EventLoopTimers, ATimerMayCancelItselfAndAddAnother)
{
    Signal added;
    EventLoop loop("test");
    EventLoop::TimerId timer;
    runOn(loop,
          [&]
          {
              timer = loop.after(1ms,
                                 [&]
                                 {
                                     loop.cancel(timer);
                                     loop.after(1ms, [&] { added.set(); });
                                 });
          });
    EXPECT_TRUE(added.wait());
}

TEST(EventLoopTimers, WhatACancelledTimerHoldsEndsAtOnceAndMayCallBack)
{
    EventLoop loop("test");
    struct Adds
    {
        EventLoop& loop;
        Signal& added;
        ~Adds()
        {
            loop.after(0ms, [&added = added] { added.set(); });
        }
    };
    Signal added;
    loop.cancel(loop.after(1h, [adds = std::shared_ptr<Adds>(new Adds{loop, added})] { (void)adds; }));
    EXPECT_TRUE(added.wait());
}

TEST(EventLoopTimers, TheLongestDelayIsTaken)
{
    Signal early;
    EventLoop loop("test");
    loop.after(std::chrono::nanoseconds::max(), [] {});
    loop.after(1ms, [&] { early.set(); });
    EXPECT_TRUE(early.wait());
}

}  // namespace
}  // namespace refhost
