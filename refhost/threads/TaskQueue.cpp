#include "refhost/threads/TaskQueue.h"

#include <chrono>
#include <optional>
#include <system_error>
#include <utility>

#include "refhost/base/HostClock.h"
#include "refhost/base/Log.h"

namespace refhost
{

TaskQueue::~TaskQueue()
{
    close();
}

void TaskQueue::close()
{
    {
        const MutexLock guard(mutex_);
        stopping_ = true;
    }
    wake_.notifyOne();
    if (thread_.joinable())
    {
        thread_.join();
    }
}

void TaskQueue::post(Task task, Duration delay)
{
    {
        const MutexLock guard(mutex_);
        if (stopping_)
        {
            return;
        }
        tasks_.add(HostClock::system().now() + delay, std::move(task));
        try
        {
            makeThread();
        }
        catch (const std::system_error& error)
        {
            // The caller may be a GStreamer thread, which must not see an exception.
            if (!std::exchange(failureReported_, true))
            {
                Log::error("no thread can be created: {}", error.what());
            }
        }
    }
    wake_.notifyOne();
}

void TaskQueue::start()
{
    const MutexLock guard(mutex_);
    makeThread();
}

void TaskQueue::makeThread()
{
    if (!thread_.joinable())
    {
        thread_ = std::thread([this] { run(); });
        failureReported_ = false;
    }
}

std::size_t TaskQueue::size() const
{
    const MutexLock guard(mutex_);
    return tasks_.size();
}

void TaskQueue::run()
{
    const MutexLock guard(mutex_);
    while (!stopping_)
    {
        if (tasks_.empty())
        {
            wake_.wait(mutex_);
            continue;
        }
        std::optional<Task> task = tasks_.takeDue(HostClock::system().now());
        if (!task)
        {
            wake_.waitUntil(mutex_,
                            std::chrono::steady_clock::time_point(tasks_.nextDue().time_since_epoch()));
            continue;
        }
        const MutexUnlock unguarded(mutex_);
        (*task)();
        task.reset();
    }
}

}  // namespace refhost
