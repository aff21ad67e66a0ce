#include "refhost/base/CountRecord.h"

#include <algorithm>
#include <chrono>
#include <thread>

namespace
{

void pause()
{
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#elif defined(__aarch64__) || defined(__arm__)
    asm volatile("yield");
#endif
}

}  // namespace

// No futex: leave() would need an atomic exchange instead of a plain store to find waiters, a cost for every
// copy of a handle. The lock is held for a few instructions, except while an object is destroyed and by a
// preempted thread; then the waiter sleeps.
void CountRecord::takeContended()
{
    // Long enough for the holder to take the lock again: a lock that moves to another processor every time
    // makes both threads three times slower.
    constexpr int minSpin = 8;
    constexpr int maxSpin = 64;
    constexpr int yields = 32;
    constexpr std::chrono::microseconds maxSleep(1000);

    const auto taken = [this]
    {
        return locked_.load(std::memory_order_relaxed) == 0 &&
               locked_.exchange(1, std::memory_order_acquire) == 0;
    };

    for (int spin = minSpin; spin <= maxSpin; spin *= 2)
    {
        for (int i = 0; i < spin; ++i)
        {
            pause();
        }
        if (taken())
        {
            return;
        }
    }
    for (int i = 0; i < yields; ++i)
    {
        std::this_thread::yield();
        if (taken())
        {
            return;
        }
    }
    for (std::chrono::microseconds sleep(20); !taken(); sleep = std::min(sleep * 2, maxSleep))
    {
        std::this_thread::sleep_for(sleep);
    }
}
