#include "refhost/threads/TaskQueue.h"

#include <system_error>

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
        const std::lock_guard<std::mutex> guard(mutex_);
        stopping_ = true;
    }
    wake_.notify_one();
    if (thread_.joinable())
    {
        thread_.join();
    }
}

void TaskQueue::post(Task task, std::chrono::milliseconds delay)
{
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        if (stopping_)
        {
            return;
        }
        tasks_.emplace(Key(Clock::now() + delay, posted_++), std::move(task));
        try
        {
            makeThread();
        }
        catch (const std::system_error& error)
        {
            // Whoever posts may be a thread of GStreamer's, which takes no exception.
            if (!std::exchange(failureTold_, true))
            {
                Log::error("no thread can be made: {}", error.what());
            }
        }
    }
    wake_.notify_one();
}

void TaskQueue::start()
{
    const std::lock_guard<std::mutex> guard(mutex_);
    makeThread();
}

void TaskQueue::makeThread()
{
    if (!thread_.joinable())
    {
        thread_ = std::thread([this] { run(); });
        failureTold_ = false;
    }
}

std::size_t TaskQueue::size() const
{
    const std::lock_guard<std::mutex> guard(mutex_);
    return tasks_.size();
}

void TaskQueue::run()
{
    std::unique_lock<std::mutex> guard(mutex_);
    while (!stopping_)
    {
        if (tasks_.empty())
        {
            wake_.wait(guard);
            continue;
        }
        const auto first = tasks_.begin();
        const Clock::time_point due = first->first.first;
        if (Clock::now() < due)
        {
            wake_.wait_until(guard, due);
            continue;
        }
        const Task task = std::move(first->second);
        tasks_.erase(first);
        guard.unlock();
        task();
        guard.lock();
    }
}

}  // namespace refhost
