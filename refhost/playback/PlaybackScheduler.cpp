#include "refhost/playback/PlaybackScheduler.h"

#include <algorithm>
#include <chrono>

namespace refhost
{

PlaybackScheduler::PlaybackScheduler(const HostClock& clock) : clock_(clock) {}

PlaybackScheduler::~PlaybackScheduler()
{
    stop();
}

void PlaybackScheduler::start(unsigned threads)
{
    const std::lock_guard<std::mutex> guard(mutex_);
    stopping_ = false;
    while (threads_.size() < threads)
    {
        threads_.emplace_back([this] { serve(); });
    }
}

void PlaybackScheduler::stop()
{
    std::vector<std::thread> ending;
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        stopping_ = true;
        ending.swap(threads_);
    }
    changed_.notify_all();
    for (std::thread& thread : ending)
    {
        thread.join();
    }
}

void PlaybackScheduler::wake(const std::shared_ptr<PlaybackWork>& work)
{
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        Entry& entry = entries_[work.get()];
        entry.work = work;
        if (entry.running)
        {
            entry.again = true;
            return;
        }
        due_.erase({entry.dueMs, work.get()});
        // Not before what is overdue: who wakes his work again and again must not keep others waiting.
        entry.dueMs = std::min(entry.dueMs, clock_.monotonicMs());
        due_.insert({entry.dueMs, work.get()});
    }
    changed_.notify_one();
}

std::size_t PlaybackScheduler::runDue(std::size_t max)
{
    std::unique_lock<std::mutex> lock(mutex_);
    std::size_t runs = 0;
    while (runs < max && runOne(lock, clock_.monotonicMs()))
    {
        ++runs;
    }
    return runs;
}

std::int64_t PlaybackScheduler::nextDue() const
{
    const std::lock_guard<std::mutex> guard(mutex_);
    return due_.empty() ? PlaybackWork::never : due_.begin()->first;
}

std::size_t PlaybackScheduler::size() const
{
    const std::lock_guard<std::mutex> guard(mutex_);
    return entries_.size();
}

void PlaybackScheduler::serve()
{
    std::unique_lock<std::mutex> lock(mutex_);
    while (!stopping_)
    {
        if (runOne(lock, clock_.monotonicMs()))
        {
            continue;
        }
        if (due_.empty())
        {
            changed_.wait(lock);
            continue;
        }
        const std::int64_t waitMs = due_.begin()->first - clock_.monotonicMs();
        changed_.wait_for(lock, std::chrono::milliseconds(waitMs));
    }
}

bool PlaybackScheduler::runOne(std::unique_lock<std::mutex>& lock, std::int64_t nowMs)
{
    if (due_.empty() || due_.begin()->first > nowMs)
    {
        return false;
    }
    const PlaybackWork* const key = due_.begin()->second;
    due_.erase(due_.begin());
    Entry& entry = entries_[key];
    std::shared_ptr<PlaybackWork> work = entry.work.lock();
    if (!work)
    {
        entries_.erase(key);
        return true;
    }
    entry.running = true;
    entry.again = false;
    if (!due_.empty() && due_.begin()->first <= nowMs)
    {
        changed_.notify_one();
    }
    lock.unlock();
    const std::int64_t dueMs = work->run(nowMs);
    lock.lock();
    settle(key, dueMs);
    lock.unlock();
    // The last hold may be this one; the end of a session takes its time and locks of its own.
    work.reset();
    lock.lock();
    return true;
}

void PlaybackScheduler::settle(const PlaybackWork* key, std::int64_t dueMs)
{
    Entry& entry = entries_[key];
    entry.running = false;
    if (entry.again)
    {
        dueMs = std::min(dueMs, clock_.monotonicMs());
    }
    if (dueMs == PlaybackWork::never)
    {
        entries_.erase(key);
        return;
    }
    entry.dueMs = dueMs;
    due_.insert({dueMs, key});
}

}  // namespace refhost
