#include "refhost/threads/WorkPool.h"

#include <algorithm>
#include <chrono>
#include <system_error>
#include <utility>

#include "refhost/base/HostClock.h"
#include "refhost/base/Log.h"

namespace refhost
{

WorkPool::WorkPool(const Options& options) : options_(options) {}

WorkPool::~WorkPool()
{
    close();
}

void WorkPool::close()
{
    std::vector<std::thread> ending;
    {
        const MutexLock guard(mutex_);
        closing_ = true;
        ending.swap(threads_);
    }
    changed_.notifyAll();
    for (std::thread& thread : ending)
    {
        thread.join();
    }
    // Outside of the lock: the last hold of a work may be this one.
    std::unordered_map<PooledWork*, Entry> dropped;
    const MutexLock guard(mutex_);
    dropped.swap(entries_);
    due_ = Queue();
    const MutexUnlock unguarded(mutex_);
    dropped.clear();
}

std::size_t WorkPool::size() const
{
    const MutexLock guard(mutex_);
    return entries_.size();
}

MonotonicTime WorkPool::aligned(MonotonicTime due, Duration grain)
{
    if (grain <= Duration::zero())
    {
        return due;
    }
    const Duration over = due.time_since_epoch() % grain;
    return over == Duration::zero() ? due : due + (grain - over);
}

void WorkPool::wake(const std::shared_ptr<PooledWork>& work, Duration delay)
{
    const MonotonicTime now = HostClock::system().now();
    const MonotonicTime due = delay > Duration::zero() ? aligned(now + delay, options_.grain) : now;
    bool isFirst = false;
    {
        const MutexLock guard(mutex_);
        if (closing_)
        {
            return;
        }
        const auto [found, isNew] = entries_.try_emplace(work.get());
        Entry& entry = found->second;
        if (!isNew && !entry.ticket)
        {
            entry.again = std::min(due, entry.again.value_or(due));
            return;
        }
        if (entry.ticket)
        {
            if (entry.ticket->first <= due)
            {
                return;
            }
            due_.remove(*entry.ticket);
        }
        entry.work = work;
        isFirst = due < due_.nextDue();
        entry.ticket = due_.add(due, work.get());
        makeThreads();
    }
    if (isFirst)
    {
        changed_.notifyOne();
    }
}

void WorkPool::makeThreads()
{
    try
    {
        while (threads_.size() < options_.threads)
        {
            threads_.emplace_back([this] { serve(); });
        }
    }
    catch (const std::system_error& error)
    {
        // The next call tries again.
        if (!std::exchange(failureReported_, true))
        {
            Log::error("no thread can be made: {}", error.what());
        }
    }
}

void WorkPool::serve()
{
    const MutexLock guard(mutex_);
    while (!closing_)
    {
        if (runOne(HostClock::system().now()))
        {
            continue;
        }
        if (due_.empty())
        {
            changed_.wait(mutex_);
            continue;
        }
        changed_.waitUntil(mutex_, std::chrono::steady_clock::time_point(due_.nextDue().time_since_epoch()));
    }
}

bool WorkPool::runOne(MonotonicTime now)
{
    const std::optional<PooledWork*> key = due_.takeDue(now);
    if (!key)
    {
        return false;
    }
    Entry& entry = entries_[*key];
    entry.ticket.reset();
    std::shared_ptr<PooledWork> work = entry.work;
    if (!due_.empty())
    {
        // This thread may be gone for long: another one looks after the rest.
        changed_.notifyOne();
    }
    {
        const MutexUnlock unguarded(mutex_);
        work->run();
    }
    if (entry.again)
    {
        entry.ticket = due_.add(*std::exchange(entry.again, std::nullopt), *key);
    }
    else
    {
        entries_.erase(*key);
    }
    // The last hold may be this one, and the end of a work takes its time.
    const MutexUnlock unguarded(mutex_);
    work.reset();
    return true;
}

}  // namespace refhost
