#include "refhost/base/Mutex.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <thread>

namespace refhost
{
namespace
{

// Whether another thread finds the mutex free.
bool isFree(Mutex& mutex)
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

TEST(Mutex, IsHeldDuringALocksLifetime)
{
    Mutex mutex;
    {
        const MutexLock lock(mutex);
        EXPECT_FALSE(isFree(mutex));
    }
    EXPECT_TRUE(isFree(mutex));
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
