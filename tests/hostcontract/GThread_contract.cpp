#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "hostapi/threads/GThread.h"
#include "support/SafePointer.h"
#include "tests/ThreadCalls.h"

namespace
{

/// Counts events and lets a test wait for a number of them, with a bound.
class Counter
{
public:
    void add()
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        ++count_;
        changed_.notify_all();
    }
    int count()
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        return count_;
    }
    bool waitFor(int count)
    {
        std::unique_lock<std::mutex> lock(mutex_);
        return changed_.wait_for(lock, std::chrono::seconds(10), [&] { return count_ >= count; });
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    int count_ = 0;
};

/// A callable that counts its calls and returns `result`.
function<int> counting(Counter& calls, int result = 0)
{
    return ThreadCalls::of(
        [&calls, result]
        {
            calls.add();
            return result;
        });
}

SafePointer<GThread> makeThread(const function<int>& body,
                                const function<int>& after = ThreadCalls::nothing())
{
    return SafePointer<GThread>(new GThread(body, "contract", ThreadCalls::nothing(), after));
}

SafePointer<GThread> makeThread(std::function<int()> body)
{
    return makeThread(ThreadCalls::of(std::move(body)));
}

/// Finds out whether the body ever runs twice at once.
class Overlap
{
public:
    void pass()
    {
        if (++inside_ > 1)
        {
            overlapped_ = true;
        }
        std::this_thread::yield();
        --inside_;
    }
    bool happened() const
    {
        return overlapped_;
    }
    int inside() const
    {
        return inside_;
    }

private:
    std::atomic<int> inside_{0};
    std::atomic<bool> overlapped_{false};
};

}  // namespace

TEST(GThreadContract, DoesNotRunBeforeStart)
{
    Counter runs;
    const SafePointer<GThread> thread = makeThread(counting(runs));
    EXPECT_FALSE(thread->IsRunning());
    EXPECT_EQ(0, runs.count());
}

TEST(GThreadContract, CallsTheBodyRepeatedlyWhateverItReturns)
{
    Counter runs;
    const SafePointer<GThread> thread = makeThread(counting(runs, -1));
    EXPECT_NE(0, thread->start());
    EXPECT_TRUE(thread->IsRunning());
    EXPECT_TRUE(runs.waitFor(100));
    thread->stop();
}

TEST(GThreadContract, BodyIsNotCalledAfterStopReturned)
{
    Counter runs;
    const SafePointer<GThread> thread = makeThread(counting(runs));
    thread->start();
    ASSERT_TRUE(runs.waitFor(1));
    thread->stop();
    EXPECT_FALSE(thread->IsRunning());
    const int count = runs.count();
    std::this_thread::yield();
    EXPECT_EQ(count, runs.count());
}

TEST(GThreadContract, StopDoesNotReturnWhileTheBodyExecutes)
{
    Counter entered;
    Counter mayLeave;
    std::atomic<bool> inside{false};
    const SafePointer<GThread> thread = makeThread(
        [&]
        {
            inside = true;
            entered.add();
            mayLeave.waitFor(1);
            inside = false;
            return 0;
        });
    thread->start();
    ASSERT_TRUE(entered.waitFor(1));
    std::atomic<bool> insideAtReturn{true};
    std::thread stopper(
        [&]
        {
            thread->stop();
            insideAtReturn = inside.load();
        });
    EXPECT_TRUE(inside);
    mayLeave.add();
    stopper.join();
    EXPECT_FALSE(insideAtReturn);
}

TEST(GThreadContract, HooksRunOnceOnTheThreadAroundAllRuns)
{
    std::mutex mutex;
    std::string order;
    std::vector<std::thread::id> ids;
    Counter runs;
    const auto note = [&](char what)
    {
        const std::lock_guard<std::mutex> guard(mutex);
        if (order.empty() || order.back() != what || what != 'r')
        {
            order += what;
        }
        ids.push_back(std::this_thread::get_id());
        return 0;
    };
    {
        const SafePointer<GThread> thread(new GThread(ThreadCalls::of(
                                                          [&]
                                                          {
                                                              note('r');
                                                              runs.add();
                                                              return 0;
                                                          }),
                                                      "contract", ThreadCalls::of([&] { return note('b'); }),
                                                      ThreadCalls::of([&] { return note('a'); })));
        thread->start();
        ASSERT_TRUE(runs.waitFor(3));
        thread->stop();
        EXPECT_EQ("bra", order);
    }
    EXPECT_EQ("bra", order);
    for (const std::thread::id id : ids)
    {
        EXPECT_EQ(ids.front(), id);
        EXPECT_NE(std::this_thread::get_id(), id);
    }
}

TEST(GThreadContract, StartOfARunningThreadSucceedsAndStartsNoSecond)
{
    Overlap overlap;
    Counter runs;
    const SafePointer<GThread> thread = makeThread(
        [&]
        {
            overlap.pass();
            runs.add();
            return 0;
        });
    EXPECT_NE(0, thread->start());
    EXPECT_NE(0, thread->start());
    EXPECT_TRUE(runs.waitFor(50));
    thread->stop();
    EXPECT_FALSE(overlap.happened());
    EXPECT_FALSE(thread->IsRunning());
}

TEST(GThreadContract, StoppedThreadCanBeStartedAgain)
{
    Counter runs;
    const SafePointer<GThread> thread = makeThread(counting(runs));
    for (int iteration = 0; iteration < 20; ++iteration)
    {
        const int before = runs.count();
        ASSERT_NE(0, thread->start());
        EXPECT_TRUE(thread->IsRunning());
        ASSERT_TRUE(runs.waitFor(before + 1));
        thread->stop();
        EXPECT_FALSE(thread->IsRunning());
    }
}

TEST(GThreadContract, StopWithoutARunningThreadDoesNothing)
{
    Counter runs;
    const SafePointer<GThread> thread = makeThread(counting(runs));
    thread->stop();
    thread->stop();
    EXPECT_NE(0, thread->start());
    EXPECT_TRUE(runs.waitFor(1));
    thread->stop();
    thread->stop();
    EXPECT_FALSE(thread->IsRunning());
}

TEST(GThreadContract, BodyMayStopItsThread)
{
    Counter runs;
    Counter after;
    GThread* self = nullptr;
    const SafePointer<GThread> thread = makeThread(ThreadCalls::of(
                                                       [&]
                                                       {
                                                           runs.add();
                                                           self->stop();
                                                           return 0;
                                                       }),
                                                   counting(after));
    self = thread.operator->();
    for (int iteration = 1; iteration <= 5; ++iteration)
    {
        ASSERT_NE(0, thread->start());
        ASSERT_TRUE(after.waitFor(iteration));
        EXPECT_EQ(iteration, runs.count());
        thread->stop();
        EXPECT_FALSE(thread->IsRunning());
    }
}

TEST(GThreadContract, DestructionStopsARunningThread)
{
    Counter runs;
    Counter after;
    {
        const SafePointer<GThread> thread = makeThread(counting(runs), counting(after));
        thread->start();
        ASSERT_TRUE(runs.waitFor(1));
    }
    EXPECT_EQ(1, after.count());
}

TEST(GThreadContract, KeepsItsCallablesAsLongAsItselfAndNoLonger)
{
    const auto held = std::make_shared<int>(0);
    {
        Counter runs;
        const SafePointer<GThread> thread = makeThread(
            [&runs, held]
            {
                runs.add();
                return 0;
            });
        EXPECT_EQ(2, held.use_count());
        thread->start();
        ASSERT_TRUE(runs.waitFor(1));
        thread->stop();
        EXPECT_EQ(2, held.use_count());
    }
    EXPECT_EQ(1, held.use_count());
}

TEST(GThreadContract, StartAndStopFromManyThreadsLeaveItStopped)
{
    Overlap overlap;
    const SafePointer<GThread> thread = makeThread(
        [&]
        {
            overlap.pass();
            return 0;
        });
    std::vector<std::thread> users;
    for (int i = 0; i < 4; ++i)
    {
        users.emplace_back(
            [&]
            {
                for (int n = 0; n < 50; ++n)
                {
                    EXPECT_NE(0, thread->start());
                    thread->stop();
                }
            });
    }
    for (std::thread& user : users)
    {
        user.join();
    }
    EXPECT_FALSE(thread->IsRunning());
    EXPECT_EQ(0, overlap.inside());
    EXPECT_FALSE(overlap.happened());
}

TEST(GThreadContract, EmptyFunReturnsZero)
{
    EXPECT_EQ(0, GThread::emptyFun());
    function<int> empty = ThreadCalls::nothing();
    EXPECT_EQ(0, empty());
}
