#include "refhost/threads/WorkPool.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <array>
#include <atomic>
#include <functional>
#include <future>
#include <mutex>
#include <optional>
#include <set>
#include <string>

#include "tests/refhost/base/ManualClock.h"

namespace refhost
{
namespace
{

using std::chrono::milliseconds;
using std::chrono::seconds;

/// Long enough for any machine, and a test that fails ends.
constexpr seconds patience{20};

class Called : public PooledWork
{
public:
    using Call = std::function<MonotonicTime(MonotonicTime now)>;

    explicit Called(Call call) : call_(std::move(call)) {}

    MonotonicTime run(MonotonicTime now) override
    {
        ++runs;
        return call_(now);
    }

    std::atomic<int> runs{0};

private:
    const Call call_;
};

std::shared_ptr<Called> calls(std::function<void()> call)
{
    return std::make_shared<Called>(
        [call = std::move(call)](MonotonicTime) mutable
        {
            call();
            return PooledWork::never;
        });
}

/// Work that asks to run again after `delay`, ever again.
std::shared_ptr<Called> callsEvery(Duration delay)
{
    return std::make_shared<Called>([delay](MonotonicTime now) { return now + delay; });
}

/// Work that stands still until the test lets it go, as on a disk that hangs.
struct HangingWork
{
    std::promise<void> hangs;
    std::promise<void> release;
    std::shared_future<void> released = release.get_future().share();
    std::shared_ptr<Called> work = calls(
        [this, first = true]() mutable
        {
            if (std::exchange(first, false))
            {
                hangs.set_value();
                released.wait();
            }
        });
};

bool arrives(std::future<void> event)
{
    return event.wait_for(patience) == std::future_status::ready;
}

TEST(WorkPool, RunsWorkOnceForAllTheTimesItWasWokenBefore)
{
    WorkPool pool({1, milliseconds(1)});
    HangingWork other;
    pool.wake(other.work);
    ASSERT_TRUE(arrives(other.hangs.get_future()));
    std::atomic<int> runs{0};
    const auto work = calls([&] { ++runs; });
    for (int i = 0; i < 100; ++i)
    {
        pool.wake(work);
    }
    std::promise<void> last;
    pool.wake(calls([&] { last.set_value(); }));
    other.release.set_value();
    ASSERT_TRUE(arrives(last.get_future()));
    EXPECT_EQ(runs, 1);
}

TEST(WorkPool, WorkThatIsWokenWhileItRunsRunsOnceMore)
{
    WorkPool pool({2, milliseconds(1)});
    std::promise<void> running;
    std::promise<void> woken;
    std::shared_future<void> wokenAgain = woken.get_future().share();
    std::promise<void> second;
    std::atomic<int> runs{0};
    const auto work = calls(
        [&]
        {
            if (++runs == 1)
            {
                running.set_value();
                wokenAgain.wait();
                return;
            }
            second.set_value();
        });
    pool.wake(work);
    ASSERT_TRUE(arrives(running.get_future()));
    pool.wake(work);
    pool.wake(work);
    woken.set_value();
    ASSERT_TRUE(arrives(second.get_future()));
    pool.close();
    EXPECT_EQ(runs, 2);
}

TEST(WorkPool, WorkNeverRunsOnTwoThreadsAtOnce)
{
    WorkPool pool({4, milliseconds(1)});
    std::atomic<int> inside{0};
    std::atomic<int> overlaps{0};
    int runs = 0;  // unguarded: a race would be found by the thread sanitizer
    std::promise<void> enough;
    const auto work = calls(
        [&]
        {
            overlaps += inside++ > 0 ? 1 : 0;
            if (++runs == 200)
            {
                enough.set_value();
            }
            --inside;
        });
    auto done = enough.get_future();
    while (done.wait_for(milliseconds(0)) != std::future_status::ready)
    {
        pool.wake(work);
    }
    pool.close();
    EXPECT_EQ(overlaps, 0);
}

TEST(WorkPool, WorkThatHangsLeavesTheOtherThreadsToTheRest)
{
    HangingWork hanging;
    WorkPool pool({2, milliseconds(1)});
    pool.wake(hanging.work);
    ASSERT_TRUE(arrives(hanging.hangs.get_future()));
    for (int i = 0; i < 10; ++i)
    {
        std::promise<void> ran;
        pool.wake(calls([&] { ran.set_value(); }), milliseconds(i % 3));
        EXPECT_TRUE(arrives(ran.get_future())) << i;
    }
    hanging.release.set_value();
}

TEST(WorkPool, WorkThatWaitedBesideOneThatHangsRunsInTime)
{
    HangingWork hanging;
    WorkPool pool({2, milliseconds(1)});
    std::promise<void> ran;
    pool.wake(hanging.work, milliseconds(20));
    pool.wake(calls([&] { ran.set_value(); }), milliseconds(60));
    EXPECT_TRUE(arrives(ran.get_future()));
    hanging.release.set_value();
}

TEST(WorkPool, UsesAsManyThreadsAsItMayAndNoMore)
{
    WorkPool pool({3, milliseconds(1)});
    std::mutex mutex;
    std::set<std::thread::id> threads;
    std::atomic<int> left{200};
    std::promise<void> done;
    for (int i = 0; i < 200; ++i)
    {
        pool.wake(calls(
            [&]
            {
                std::this_thread::sleep_for(milliseconds(1));  // as a disk would
                const std::lock_guard<std::mutex> guard(mutex);
                threads.insert(std::this_thread::get_id());
                if (--left == 0)
                {
                    done.set_value();
                }
            }));
    }
    ASSERT_TRUE(arrives(done.get_future()));
    EXPECT_LE(threads.size(), 3U);
    EXPECT_GE(threads.size(), 2U);
}

TEST(WorkPool, DelayedWorkRunsAfterItsTime)
{
    WorkPool pool({1, milliseconds(20)});
    const auto start = std::chrono::steady_clock::now();
    std::promise<void> ran;
    pool.wake(calls([&] { ran.set_value(); }), milliseconds(30));
    ASSERT_TRUE(arrives(ran.get_future()));
    EXPECT_GE(std::chrono::steady_clock::now() - start, milliseconds(30));
}

TEST(WorkPool, AlignsDelayedWorkToTheEndOfItsGrain)
{
    const auto at = [](int ms) { return MonotonicTime(milliseconds(ms)); };
    EXPECT_EQ(WorkPool::aligned(at(100), milliseconds(50)), at(100));
    EXPECT_EQ(WorkPool::aligned(at(101), milliseconds(50)), at(150));
    EXPECT_EQ(WorkPool::aligned(at(149), milliseconds(50)), at(150));
    EXPECT_EQ(WorkPool::aligned(at(149), milliseconds(0)), at(149));
}

TEST(WorkPool, EarlierWakeOverridesALaterOneButNotViceVersa)
{
    WorkPool pool({1, milliseconds(1)});
    std::atomic<int> runs{0};
    std::promise<void> ran;
    const auto work = calls(
        [&]
        {
            ++runs;
            ran.set_value();
        });
    pool.wake(work, std::chrono::hours(1));
    pool.wake(work);
    pool.wake(work, std::chrono::hours(1));
    ASSERT_TRUE(arrives(ran.get_future()));
    EXPECT_LE(pool.size(), 1U);
    pool.close();
    EXPECT_EQ(runs, 1);
}

TEST(WorkPool, KeepsWorkUntilItRanAndNoLonger)
{
    WorkPool pool({1, milliseconds(1)});
    std::promise<void> ran;
    auto work = calls([&] { ran.set_value(); });
    const std::weak_ptr<Called> kept = work;
    pool.wake(std::exchange(work, nullptr));
    ASSERT_TRUE(arrives(ran.get_future()));
    pool.close();
    EXPECT_TRUE(kept.expired());
}

TEST(WorkPool, ClosedPoolDropsWhatWaitsAndTakesNothing)
{
    WorkPool pool({1, milliseconds(1)});
    std::atomic<int> runs{0};
    pool.wake(calls([&] { ++runs; }), std::chrono::hours(1));
    pool.close();
    pool.wake(calls([&] { ++runs; }));
    EXPECT_EQ(pool.size(), 0U);
    EXPECT_EQ(runs, 0);
}

TEST(WorkPool, WorkRunsAgainAtTheTimeItAsksFor)
{
    WorkPool pool({1, milliseconds(1)});
    std::promise<MonotonicTime> again;
    std::optional<MonotonicTime> first;
    const auto work = std::make_shared<Called>(
        [&](MonotonicTime now)
        {
            if (!first)
            {
                first = now;
                return now + milliseconds(30);
            }
            again.set_value(now);
            return PooledWork::never;
        });
    pool.wake(work);
    auto when = again.get_future();
    ASSERT_EQ(when.wait_for(patience), std::future_status::ready);
    EXPECT_GE(when.get() - *first, milliseconds(30));
}

TEST(WorkPool, WorkThatAsksToRunAgainNeverRunsOnTwoThreadsAtOnce)
{
    WorkPool pool({4, milliseconds(1)});
    std::atomic<int> inside{0};
    std::atomic<int> overlaps{0};
    int runs = 0;  // unguarded: a race would be found by the thread sanitizer
    std::promise<void> enough;
    const auto work = std::make_shared<Called>(
        [&](MonotonicTime now)
        {
            overlaps += inside++ > 0 ? 1 : 0;
            if (++runs == 2000)
            {
                enough.set_value();
            }
            --inside;
            return runs < 2000 ? now : PooledWork::never;
        });
    auto done = enough.get_future();
    while (done.wait_for(milliseconds(0)) != std::future_status::ready)
    {
        pool.wake(work);
    }
    pool.close();
    EXPECT_EQ(overlaps, 0);
}

TEST(WorkPool, ThreadsAreNamed)
{
    WorkPool pool({1, milliseconds(1), "named so"});
    std::promise<std::string> name;
    pool.wake(calls(
        [&]
        {
            std::array<char, 16> text{};
            pthread_getname_np(pthread_self(), text.data(), text.size());
            name.set_value(text.data());
        }));
    auto found = name.get_future();
    ASSERT_EQ(found.wait_for(patience), std::future_status::ready);
    EXPECT_EQ(found.get(), "named so");
}

/// A pool without threads, whose work the test runs.
class WorkPoolWithoutThreads : public testing::Test
{
protected:
    test::ManualClock clock;
    WorkPool pool{{0, Duration::zero(), "test", &clock}};
};

TEST_F(WorkPoolWithoutThreads, RunsWokenWorkOnce)
{
    const auto work = calls([] {});
    pool.wake(work);
    pool.wake(work);
    EXPECT_EQ(pool.runDue(), 1U);
    EXPECT_EQ(pool.runDue(), 0U);
    EXPECT_EQ(pool.size(), 0U);
}

TEST_F(WorkPoolWithoutThreads, RunsWorkAgainWhenItIsDue)
{
    const auto work = callsEvery(milliseconds(40));
    pool.wake(work);
    pool.runDue();
    clock.advance(milliseconds(39));
    EXPECT_EQ(pool.runDue(), 0U);
    clock.advance(milliseconds(1));
    EXPECT_EQ(pool.runDue(), 1U);
    EXPECT_EQ(pool.nextDue(), clock.now() + milliseconds(40));
}

TEST_F(WorkPoolWithoutThreads, WorkWokenRepeatedlyDoesNotStarveOthers)
{
    const auto patient = callsEvery(milliseconds(10));
    pool.wake(patient);
    pool.runDue();
    clock.advance(milliseconds(20));
    std::shared_ptr<Called> eager;
    eager = calls([&] { pool.wake(eager); });
    pool.wake(eager);
    pool.runDue(10);
    EXPECT_EQ(patient->runs, 2);
    pool.close();
    eager.reset();
}

TEST_F(WorkPoolWithoutThreads, DropsWorkThatAskedToRunAgainWithItsLastOwner)
{
    auto work = callsEvery(milliseconds(10));
    const std::weak_ptr<Called> kept = work;
    pool.wake(work);
    pool.runDue();
    EXPECT_EQ(pool.size(), 1U);
    work.reset();
    EXPECT_TRUE(kept.expired());
    clock.advance(milliseconds(10));
    pool.runDue();
    EXPECT_EQ(pool.size(), 0U);
}

TEST_F(WorkPoolWithoutThreads, KeepsWorkThatIsWokenThoughItAskedToRunAgain)
{
    auto work = callsEvery(milliseconds(10));
    const std::weak_ptr<Called> kept = work;
    pool.wake(work);
    pool.runDue();
    pool.wake(std::exchange(work, nullptr), std::chrono::hours(1));
    EXPECT_FALSE(kept.expired());
    clock.advance(milliseconds(10));
    EXPECT_EQ(pool.runDue(), 1U);
    EXPECT_TRUE(kept.expired());
}

}  // namespace
}  // namespace refhost
