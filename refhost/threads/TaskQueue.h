#pragma once

#include <cstddef>
#include <functional>
#include <thread>

#include "refhost/base/ConditionVariable.h"
#include "refhost/base/Times.h"
#include "refhost/threads/DueQueue.h"

namespace refhost
{

/// Runs tasks one after the other on a thread of its own, at once or after a delay.
///
/// The thread starts with the first task, or with start(). Threads: any; posting never waits for a task.
class TaskQueue
{
public:
    using Task = std::function<void()>;

    TaskQueue() = default;
    ~TaskQueue();
    TaskQueue(const TaskQueue&) = delete;
    TaskQueue& operator=(const TaskQueue&) = delete;

    /// Makes the thread now.
    /// \throws std::system_error when the system has none
    void start();

    /// Runs `task` after those that are due; tasks that are due at the same time run in the order of posting.
    /// Where the system has no thread for the first task, it waits for the next call, which tries again.
    /// \param delay  from now, not before which the task runs
    void post(Task task, Duration delay = Duration::zero());

    /// Waits for the task that runs now and drops the others, as the destructor does; what is posted later is
    /// dropped too. Not from the queue's own thread.
    void close();

    /// How many tasks wait, due or not.
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
