#pragma once

#include <mutex>

#include "refhost/base/ThreadSafety.h"

namespace refhost
{

/// std::mutex with thread-safety annotations. Threads: any; the thread that locks it unlocks it.
class OV_CAPABILITY("mutex") Mutex
{
public:
    Mutex() = default;
    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;

    void lock() OV_ACQUIRE()
    {
        mutex_.lock();
    }

    void unlock() OV_RELEASE()
    {
        mutex_.unlock();
    }

    /// \returns true when the mutex is held now; never waits
    bool tryLock() OV_TRY_ACQUIRE(true)
    {
        return mutex_.try_lock();
    }

private:
    friend class ConditionVariable;

    std::mutex mutex_;
};

/// Holds a mutex during its lifetime.
class OV_SCOPED_CAPABILITY MutexLock
{
public:
    explicit MutexLock(Mutex& mutex) OV_ACQUIRE(mutex) : mutex_(mutex)
    {
        mutex.lock();
    }

    ~MutexLock() OV_RELEASE()
    {
        mutex_.unlock();
    }

    MutexLock(const MutexLock&) = delete;
    MutexLock& operator=(const MutexLock&) = delete;

private:
    Mutex& mutex_;
};

/// Releases a mutex during its lifetime and locks it again at the end, also when an exception ends it.
/// Requires: the thread holds the mutex.
class OV_SCOPED_CAPABILITY MutexUnlock
{
public:
    explicit MutexUnlock(Mutex& mutex) OV_RELEASE(mutex) : mutex_(mutex)
    {
        mutex.unlock();
    }

    ~MutexUnlock() OV_RELEASE()
    {
        mutex_.lock();
    }

    MutexUnlock(const MutexUnlock&) = delete;
    MutexUnlock& operator=(const MutexUnlock&) = delete;

private:
    Mutex& mutex_;
};

}  // namespace refhost
