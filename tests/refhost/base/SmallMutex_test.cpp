#include "refhost/base/SmallMutex.h"

#include <gtest/gtest.h>

#include <array>
#include <thread>
#include <vector>

namespace refhost
{
namespace
{

// Whether another thread finds the mutex free.
bool isFree(SmallMutex& mutex)
{
    bool free = false;
    std::thread(
        [&]
        {
            if (mutex.tryLock())
            {
                free = true;
                mutex.unlock();
            }
        })
        .join();
    return free;
}

}  // namespace

TEST(SmallMutex, IsHeldDuringALocksLifetime)
{
    SmallMutex mutex;
    {
        const SmallMutexLock lock(mutex);
        EXPECT_FALSE(isFree(mutex));
    }
    EXPECT_TRUE(isFree(mutex));
}

TEST(SmallMutex, HasFourBytes)
{
    EXPECT_EQ(sizeof(SmallMutex), 4u);
}

TEST(SmallMutex, LetsOneThreadInAtATime)
{
    SmallMutex mutex;
    int count = 0;
    constexpr int passes = 20'000;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
    {
        threads.emplace_back(
            [&]
            {
                for (int pass = 0; pass < passes; ++pass)
                {
                    const SmallMutexLock lock(mutex);
                    ++count;
                }
            });
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }
    EXPECT_EQ(count, 4 * passes);
}

TEST(SmallMutex, WakesEveryThreadThatSleeps)
{
    SmallMutex mutex;
    std::array<std::thread, 3> threads;
    int passed = 0;
    {
        const SmallMutexLock lock(mutex);
        for (std::thread& thread : threads)
        {
            thread = std::thread(
                [&]
                {
                    const SmallMutexLock inside(mutex);
                    ++passed;
                });
        }
        std::this_thread::yield();
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }
    EXPECT_EQ(passed, 3);
}

}  // namespace refhost
