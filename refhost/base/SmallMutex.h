#pragma once
// Tested by tests/refhost/base/Mutex_test.cpp.

#include <atomic>
#include <cstdint>

#include "refhost/base/ThreadSafety.h"

#if defined(__SANITIZE_THREAD__)
#include <sanitizer/tsan_interface.h>
#endif

namespace refhost
{

/// A mutex of four bytes, where Mutex has forty: for objects of which there are thousands. It has no
/// ConditionVariable. Threads that wait sleep; the thread that locks it unlocks it. Threads: any.
class OV_CAPABILITY("mutex") SmallMutex
{
public:
    SmallMutex()
    {
#if defined(__SANITIZE_THREAD__)
        __tsan_mutex_create(this, 0);
#endif
    }
    ~SmallMutex()
    {
#if defined(__SANITIZE_THREAD__)
        __tsan_mutex_destroy(this, 0);
#endif
    }
    SmallMutex(const SmallMutex&) = delete;
    SmallMutex& operator=(const SmallMutex&) = delete;

    void lock() OV_ACQUIRE()
    {
#if defined(__SANITIZE_THREAD__)
        __tsan_mutex_pre_lock(this, 0);
#endif
        std::uint32_t before = unlocked;
        if (!state_.compare_exchange_strong(before, locked, std::memory_order_acquire,
                                            std::memory_order_relaxed))
        {
            lockContended();
        }
#if defined(__SANITIZE_THREAD__)
        __tsan_mutex_post_lock(this, 0, 0);
#endif
    }

    void unlock() OV_RELEASE()
    {
#if defined(__SANITIZE_THREAD__)
        __tsan_mutex_pre_unlock(this, 0);
#endif
        if (state_.exchange(unlocked, std::memory_order_release) == awaited)
        {
            wakeOne();
        }
#if defined(__SANITIZE_THREAD__)
        __tsan_mutex_post_unlock(this, 0);
#endif
    }

    /// \returns true when the mutex is held now; never waits
    bool tryLock() OV_TRY_ACQUIRE(true)
    {
#if defined(__SANITIZE_THREAD__)
        __tsan_mutex_pre_lock(this, __tsan_mutex_try_lock);
#endif
        std::uint32_t before = unlocked;
        const bool taken = state_.compare_exchange_strong(before, locked, std::memory_order_acquire,
                                                          std::memory_order_relaxed);
#if defined(__SANITIZE_THREAD__)
        __tsan_mutex_post_lock(this, __tsan_mutex_try_lock | (taken ? 0 : __tsan_mutex_try_lock_failed), 0);
#endif
        return taken;
    }

private:
    static constexpr std::uint32_t unlocked = 0;
    static constexpr std::uint32_t locked = 1;
    static constexpr std::uint32_t awaited = 2;  // locked, and a thread may sleep until it is not

    void lockContended();
    void wakeOne();

    std::atomic<std::uint32_t> state_{unlocked};
};

/// Holds a SmallMutex during its lifetime.
class OV_SCOPED_CAPABILITY SmallMutexLock
{
public:
    explicit SmallMutexLock(SmallMutex& mutex) OV_ACQUIRE(mutex) : mutex_(mutex)
    {
        mutex.lock();
    }

    ~SmallMutexLock() OV_RELEASE()
    {
        mutex_.unlock();
    }

    SmallMutexLock(const SmallMutexLock&) = delete;
    SmallMutexLock& operator=(const SmallMutexLock&) = delete;

private:
    SmallMutex& mutex_;
};

}  // namespace refhost
