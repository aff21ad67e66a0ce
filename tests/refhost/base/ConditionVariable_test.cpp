#include "refhost/base/ConditionVariable.h"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

namespace refhost
{

TEST(ConditionVariable, WaitReturnsAfterANotificationWithTheMutexHeld)
{
    Mutex mutex;
    ConditionVariable changed;
    int stage = 0;
    std::thread other;
    {
        const MutexLock lock(mutex);
        other = std::thread(
            [&]
            {
                const MutexLock otherLock(mutex);
                stage = 1;
                changed.notifyAll();
                while (stage != 2)
                {
                    changed.wait(mutex);
                }
                stage = 3;
            });
        while (stage != 1)
        {
            changed.wait(mutex);
        }
        stage = 2;
        changed.notifyOne();
        // The other thread cannot go on before this one lets go.
        EXPECT_EQ(2, stage);
    }
    other.join();
    EXPECT_EQ(3, stage);
}

TEST(ConditionVariable, WaitReturnsAtItsDeadlineWithTheMutexHeld)
{
    Mutex mutex;
    ConditionVariable changed;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(1);
    const MutexLock lock(mutex);
    while (changed.waitUntil(mutex, deadline))
    {
    }
    EXPECT_LE(deadline, std::chrono::steady_clock::now());
    bool taken = true;
    std::thread([&] { taken = mutex.tryLock(); }).join();
    EXPECT_FALSE(taken);
}

}  // namespace refhost
