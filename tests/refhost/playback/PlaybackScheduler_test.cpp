#include "refhost/playback/PlaybackScheduler.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <array>
#include <atomic>
#include <functional>
#include <future>
#include <optional>
#include <string>

#include "tests/refhost/rtp/RtpFakes.h"

namespace refhost
{
namespace test
{
namespace
{

using namespace std::chrono_literals;

class CountingWork : public PlaybackWork
{
public:
    MonotonicTime run(MonotonicTime now) override
    {
        ++runs;
        return action ? action(now) : never;
    }

    std::atomic<int> runs{0};
    std::function<MonotonicTime(MonotonicTime)> action;
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
    work->action = [](MonotonicTime now) { return now + 40ms; };
    scheduler.wake(work);
    scheduler.runDue();
    clock.advance(std::chrono::milliseconds(39));
    EXPECT_EQ(scheduler.runDue(), 0U);
    clock.advance(std::chrono::milliseconds(1));
    EXPECT_EQ(scheduler.runDue(), 1U);
    EXPECT_EQ(scheduler.nextDue(), clock.now() + 40ms);
}

TEST_F(PlaybackSchedulerTest, WorkWokenWhileItRunsRunsAgain)
{
    work->action = [this](MonotonicTime)
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

TEST_F(PlaybackSchedulerTest, WorkWokenRepeatedlyDoesNotStarveOthers)
{
    const auto patient = std::make_shared<CountingWork>();
    patient->action = [](MonotonicTime now) { return now + 10ms; };
    scheduler.wake(patient);
    scheduler.runDue();
    clock.advance(std::chrono::milliseconds(20));
    work->action = [this](MonotonicTime)
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
    work->action = [](MonotonicTime now) { return now + 10ms; };
    scheduler.wake(work);
    scheduler.runDue();
    EXPECT_EQ(scheduler.size(), 1U);
    work.reset();
    clock.advance(std::chrono::milliseconds(10));
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
    work->action = [&](MonotonicTime now)
    {
        together = together || inside.fetch_add(1) != 0;
        inside.fetch_sub(1);
        if (work->runs == 2000)
        {
            done.set_value();
        }
        return work->runs < 2000 ? now : PlaybackWork::never;
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

TEST_F(PlaybackSchedulerTest, ThreadsAreNamed)
{
    PlaybackScheduler threaded(HostClock::system());
    threaded.start(1);
    std::promise<std::string> name;
    work->action = [&](MonotonicTime)
    {
        std::array<char, 16> text{};
        pthread_getname_np(pthread_self(), text.data(), text.size());
        name.set_value(text.data());
        return PlaybackWork::never;
    };
    threaded.wake(work);
    auto found = name.get_future();
    ASSERT_EQ(found.wait_for(std::chrono::seconds(20)), std::future_status::ready);
    EXPECT_EQ(found.get(), "playback");
    threaded.stop();
}

TEST_F(PlaybackSchedulerTest, ThreadsFollowTheClock)
{
    PlaybackScheduler threaded(HostClock::system());
    threaded.start(2);
    std::promise<MonotonicTime> second;
    std::optional<MonotonicTime> first;
    work->action = [&](MonotonicTime now)
    {
        if (!first)
        {
            first = now;
            return now + 30ms;
        }
        second.set_value(now);
        return PlaybackWork::never;
    };
    threaded.wake(work);
    auto when = second.get_future();
    ASSERT_EQ(when.wait_for(std::chrono::seconds(20)), std::future_status::ready);
    EXPECT_GE((when.get() - *first) / 1ms, 30);
    threaded.stop();
}

}  // namespace
}  // namespace test
}  // namespace refhost
