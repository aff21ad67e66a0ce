#pragma once

#include <cstddef>
#include <functional>
#include <thread>

#include "refhost/base/ConditionVariable.h"
#include "refhost/base/Times.h"
#include "refhost/threads/DueQueue.h"

namespace refhost
{

/// Runs tasks one at a time on a thread of its own, at once or after a delay.
///
/// The thread starts with the first task or with start(). Threads: any; post() never waits for a task.
class TaskQueue
{
public:
    using Task = std::function<void()>;

    TaskQueue() = default;
    ~TaskQueue();
    TaskQueue(const TaskQueue&) = delete;
    TaskQueue& operator=(const TaskQueue&) = delete;

    /// Starts the thread now.
    /// \throws std::system_error when the system cannot create one
    void start();

    /// Queues `task`. Tasks run in the order of their due times, then in the order of posting. When the
    /// thread cannot be created, the task stays queued and the next call tries again.
    /// \param delay  from now; the task does not run earlier
    void post(Task task, Duration delay = Duration::zero());

    /// Waits for the running task and drops the others, and all that are posted later. The destructor does
    /// the same. Requires: not called on the queue's thread.
    void close();

    /// Number of queued tasks, due or not.
    std::size_t size() const;

private:
    void run();
    void makeThread() OV_REQUIRES(mutex_);

    mutable Mutex mutex_;
    ConditionVariable wake_;
    DueQueue<Task> tasks_ OV_GUARDED_BY(mutex_);
    bool stopping_ OV_GUARDED_BY(mutex_) = false;
    std::thread thread_;
    bool failureReported_ OV_GUARDED_BY(mutex_) = false;
};

}  // namespace refhost
