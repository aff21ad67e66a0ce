#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

#include "refhost/base/Mutex.h"

namespace refhost
{

/// std::condition_variable for a Mutex. Waits can end spuriously: wait in a loop that tests the condition.
/// A predicate would hide from the compiler that the mutex is held. Threads: any.
class ConditionVariable
{
public:
    void notifyOne()
    {
        condition_.notify_one();
    }

    void notifyAll()
    {
        condition_.notify_all();
    }

    /// Releases the mutex while waiting.
    void wait(Mutex& mutex) OV_REQUIRES(mutex)
    {
        Adopted adopted(mutex.mutex_);
        condition_.wait(adopted.lock);
    }

    /// \returns false when `deadline` has passed
    bool waitUntil(Mutex& mutex, std::chrono::steady_clock::time_point deadline) OV_REQUIRES(mutex)
    {
        Adopted adopted(mutex.mutex_);
        return condition_.wait_until(adopted.lock, deadline) == std::cv_status::no_timeout;
    }

private:
    /// The lock object that std::condition_variable takes; leaves the mutex locked when destroyed.
    struct Adopted
    {
        explicit Adopted(std::mutex& mutex) : lock(mutex, std::adopt_lock) {}
        ~Adopted()
        {
            lock.release();
        }
        Adopted(const Adopted&) = delete;
        Adopted& operator=(const Adopted&) = delete;

        std::unique_lock<std::mutex> lock;
    };

    std::condition_variable condition_;
};

}  // namespace refhost
