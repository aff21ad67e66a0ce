#include "refhost/playback/PlaybackScheduler.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <future>

#include "tests/refhost/rtp/RtpFakes.h"

namespace refhost
{
namespace test
{
namespace
{

class CountingWork : public PlaybackWork
{
public:
    std::int64_t run(std::int64_t nowMs) override
    {
        ++runs;
        return action ? action(nowMs) : never;
    }

    std::atomic<int> runs{0};
    std::function<std::int64_t(std::int64_t)> action;
};

class PlaybackSchedulerTest : public testing::Test
{
protected:
    ManualClock clock;
    PlaybackScheduler scheduler{clock};
    std::shared_ptr<CountingWork> work = std::make_shared<CountingWork>();
};

TEST_F(PlaybackSchedulerTest, WokenWorkRunsOnce)
{
    scheduler.wake(work);
    scheduler.wake(work);
    EXPECT_EQ(scheduler.runDue(), 1U);
    EXPECT_EQ(scheduler.runDue(), 0U);
    EXPECT_EQ(scheduler.size(), 0U);
}

TEST_F(PlaybackSchedulerTest, WorkRunsAgainWhenItIsDue)
{
    work->action = [](std::int64_t nowMs) { return nowMs + 40; };
    scheduler.wake(work);
    scheduler.runDue();
    clock.advanceMs(39);
    EXPECT_EQ(scheduler.runDue(), 0U);
    clock.advanceMs(1);
    EXPECT_EQ(scheduler.runDue(), 1U);
    EXPECT_EQ(scheduler.nextDue(), clock.monotonicMs() + 40);
}

TEST_F(PlaybackSchedulerTest, WorkWokenWhileItRunsRunsAgain)
{
    work->action = [this](std::int64_t)
    {
        if (work->runs == 1)
        {
            scheduler.wake(work);
        }
        return PlaybackWork::never;
    };
    scheduler.wake(work);
    EXPECT_EQ(scheduler.runDue(), 2U);
}

TEST_F(PlaybackSchedulerTest, WorkThatIsWokenAgainAndAgainDoesNotKeepOthersWaiting)
{
    const auto patient = std::make_shared<CountingWork>();
    patient->action = [](std::int64_t nowMs) { return nowMs + 10; };
    scheduler.wake(patient);
    scheduler.runDue();
    clock.advanceMs(20);
    work->action = [this](std::int64_t)
    {
        scheduler.wake(work);
        return PlaybackWork::never;
    };
    scheduler.wake(work);
    scheduler.runDue(10);
    EXPECT_EQ(patient->runs, 2);
}

TEST_F(PlaybackSchedulerTest, WhatNobodyHoldsIsDropped)
{
    work->action = [](std::int64_t nowMs) { return nowMs + 10; };
    scheduler.wake(work);
    scheduler.runDue();
    EXPECT_EQ(scheduler.size(), 1U);
    work.reset();
    clock.advanceMs(10);
    scheduler.runDue();
    EXPECT_EQ(scheduler.size(), 0U);
}

TEST_F(PlaybackSchedulerTest, ManyThreadsNeverRunOneWorkTwiceAtATime)
{
    PlaybackScheduler threaded(HostClock::system());
    threaded.start(4);
    std::atomic<int> inside{0};
    std::atomic<bool> together{false};
    std::promise<void> done;
    work->action = [&](std::int64_t nowMs)
    {
        together = together || inside.fetch_add(1) != 0;
        inside.fetch_sub(1);
        if (work->runs == 2000)
        {
            done.set_value();
        }
        return work->runs < 2000 ? nowMs : PlaybackWork::never;
    };
    threaded.wake(work);
    auto finished = done.get_future();
    for (int i = 0; i < 100'000 && finished.wait_for(std::chrono::seconds(0)) != std::future_status::ready;
         ++i)
    {
        threaded.wake(work);
    }
    ASSERT_EQ(finished.wait_for(std::chrono::seconds(20)), std::future_status::ready);
    threaded.stop();
    EXPECT_FALSE(together);
}

TEST_F(PlaybackSchedulerTest, ThreadsFollowTheClock)
{
    PlaybackScheduler threaded(HostClock::system());
    threaded.start(2);
    std::promise<std::int64_t> second;
    std::int64_t first = 0;
    work->action = [&](std::int64_t nowMs)
    {
        if (first == 0)
        {
            first = nowMs;
            return nowMs + 30;
        }
        second.set_value(nowMs);
        return PlaybackWork::never;
    };
    threaded.wake(work);
    auto when = second.get_future();
    ASSERT_EQ(when.wait_for(std::chrono::seconds(20)), std::future_status::ready);
    EXPECT_GE(when.get() - first, 30);
    threaded.stop();
}

}  // namespace
}  // namespace test
}  // namespace refhost
