#include "refhost/base/Mutex.h"

#include <gtest/gtest.h>

#include <array>
#include <stdexcept>
#include <thread>
#include <vector>

#include "refhost/base/SmallMutex.h"

namespace refhost
{
namespace
{

// Whether another thread finds the mutex free.
template <typename AnyMutex>
bool isFree(AnyMutex& mutex)
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

/// A mutex with the lock that holds it.
template <typename AnyMutex, typename AnyLock>
struct Kind
{
    using Mutex = AnyMutex;
    using Lock = AnyLock;
};

template <typename Kind>
class EveryMutex : public testing::Test
{
};

using Kinds = testing::Types<Kind<Mutex, MutexLock>, Kind<SmallMutex, SmallMutexLock>>;

}  // namespace

TYPED_TEST_SUITE(EveryMutex, Kinds, );

TYPED_TEST(EveryMutex, IsHeldDuringALocksLifetime)
{
    typename TypeParam::Mutex mutex;
    {
        const typename TypeParam::Lock lock(mutex);
        EXPECT_FALSE(isFree(mutex));
    }
    EXPECT_TRUE(isFree(mutex));
}

TYPED_TEST(EveryMutex, LetsOneThreadInAtATime)
{
    typename TypeParam::Mutex mutex;
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
                    const typename TypeParam::Lock lock(mutex);
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

TYPED_TEST(EveryMutex, WakesEveryThreadThatSleeps)
{
    typename TypeParam::Mutex mutex;
    std::array<std::thread, 3> threads;
    int passed = 0;
    {
        const typename TypeParam::Lock lock(mutex);
        for (std::thread& thread : threads)
        {
            thread = std::thread(
                [&]
                {
                    const typename TypeParam::Lock inside(mutex);
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

TEST(SmallMutex, HasFourBytes)
{
    EXPECT_EQ(sizeof(SmallMutex), 4u);
}

TEST(Mutex, IsFreeDuringAnUnlocksLifetime)
{
    Mutex mutex;
    const MutexLock lock(mutex);
    {
        const MutexUnlock unlock(mutex);
        EXPECT_TRUE(isFree(mutex));
    }
    EXPECT_FALSE(isFree(mutex));
}

TEST(Mutex, IsHeldAgainAfterAnExceptionEndsAnUnlock)
{
    Mutex mutex;
    const MutexLock lock(mutex);
    try
    {
        const MutexUnlock unlock(mutex);
        throw std::runtime_error("ends it");
    }
    catch (const std::runtime_error&)
    {
        EXPECT_FALSE(isFree(mutex));
    }
}

TEST(Mutex, HasTheSizeOfTheStandardMutex)
{
    EXPECT_EQ(sizeof(std::mutex), sizeof(Mutex));
}

}  // namespace refhost
