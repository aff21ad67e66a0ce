#include "refhost/threads/WorkPool.h"

#include <pthread.h>

#include <algorithm>
#include <chrono>
#include <system_error>
#include <utility>

#include "refhost/base/Log.h"

namespace refhost
{

WorkPool::WorkPool(Options options) : options_(std::move(options)) {}

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
    const MonotonicTime now = options_.clock->now();
    const MonotonicTime due = now + delay;
    bool notify = false;
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
        entry.work = work;
        entry.kept = work;
        if (entry.ticket)
        {
            if (entry.ticket->first <= due)
            {
                return;
            }
            due_.remove(*entry.ticket);
        }
        entry.ticket = due_.add(due, work.get());
        notify = due <= now || aligned(due, options_.grain) < watched_;
        makeThreads();
    }
    if (notify)
    {
        changed_.notifyOne();
    }
}

std::size_t WorkPool::runDue(std::size_t max)
{
    const MutexLock guard(mutex_);
    std::size_t runs = 0;
    while (runs < max && runOne(options_.clock->now()))
    {
        ++runs;
    }
    return runs;
}

MonotonicTime WorkPool::nextDue() const
{
    const MutexLock guard(mutex_);
    return due_.nextDue();
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
    pthread_setname_np(pthread_self(), options_.name.c_str());
    const MutexLock guard(mutex_);
    while (!closing_)
    {
        if (!runOne(options_.clock->now()))
        {
            sleep();
        }
    }
}

void WorkPool::sleep()
{
    if (due_.empty())
    {
        changed_.wait(mutex_);
        return;
    }
    watched_ = aligned(due_.nextDue(), options_.grain);
    changed_.waitUntil(mutex_, std::chrono::steady_clock::now() + (watched_ - options_.clock->now()));
    // Others may sleep on, but for how long is not known any more.
    watched_ = PooledWork::never;
}

bool WorkPool::runOne(MonotonicTime now)
{
    const std::optional<PooledWork*> key = due_.takeDue(now);
    if (!key)
    {
        return false;
    }
    Entry& entry = entries_[*key];
    std::shared_ptr<PooledWork> work = entry.work.lock();
    if (work == nullptr)
    {
        entries_.erase(*key);
        return true;
    }
    entry.kept.reset();
    entry.ticket.reset();
    if (!due_.empty() && (due_.nextDue() <= now || aligned(due_.nextDue(), options_.grain) < watched_))
    {
        // This thread may be gone for long: another one looks after the rest.
        changed_.notifyOne();
    }
    MonotonicTime due;
    {
        const MutexUnlock unguarded(mutex_);
        due = work->run(now);
    }
    settle(*key, due);
    // The last hold may be this one, and the end of a work takes its time.
    const MutexUnlock unguarded(mutex_);
    work.reset();
    return true;
}

/// \param due  when the work wants to run again
void WorkPool::settle(PooledWork* key, MonotonicTime due)
{
    Entry& entry = entries_[key];
    if (entry.again)
    {
        entry.kept = entry.work.lock();
        due = std::min(due, *std::exchange(entry.again, std::nullopt));
    }
    if (due == PooledWork::never)
    {
        entries_.erase(key);
        return;
    }
    entry.ticket = due_.add(due, key);
}

}  // namespace refhost
