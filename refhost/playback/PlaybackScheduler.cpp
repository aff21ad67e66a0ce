#include "refhost/playback/PlaybackScheduler.h"

#include <pthread.h>

#include <algorithm>
#include <chrono>
#include <utility>

#include "refhost/threads/WorkPool.h"

namespace refhost
{
namespace
{

/// Threads that sleep wake up at multiples of it: what is due at about the same time costs one wake-up.
constexpr Duration grain = std::chrono::milliseconds(4);

}  // namespace

PlaybackScheduler::PlaybackScheduler(const HostClock& clock) : clock_(clock) {}

PlaybackScheduler::~PlaybackScheduler()
{
    stop();
}

void PlaybackScheduler::start(unsigned threads)
{
    const MutexLock guard(mutex_);
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
        const MutexLock guard(mutex_);
        stopping_ = true;
        ending.swap(threads_);
    }
    changed_.notifyAll();
    for (std::thread& thread : ending)
    {
        thread.join();
    }
}

void PlaybackScheduler::wake(const std::shared_ptr<PlaybackWork>& work)
{
    {
        const MutexLock guard(mutex_);
        const auto [found, fresh] = entries_.try_emplace(work.get());
        Entry& entry = found->second;
        entry.work = work;
        if (!fresh && !entry.ticket)
        {
            entry.again = true;
            return;
        }
        MonotonicTime due = clock_.now();
        if (entry.ticket)
        {
            // Not before overdue work: waking a work repeatedly must not starve others.
            due = std::min(due, entry.ticket->first);
            due_.remove(*entry.ticket);
        }
        entry.ticket = due_.add(due, work.get());
    }
    changed_.notifyOne();
}

std::size_t PlaybackScheduler::runDue(std::size_t max)
{
    const MutexLock lock(mutex_);
    std::size_t runs = 0;
    while (runs < max && runOne(clock_.now()))
    {
        ++runs;
    }
    return runs;
}

MonotonicTime PlaybackScheduler::nextDue() const
{
    const MutexLock guard(mutex_);
    return due_.nextDue();
}

std::size_t PlaybackScheduler::size() const
{
    const MutexLock guard(mutex_);
    return entries_.size();
}

void PlaybackScheduler::serve()
{
    pthread_setname_np(pthread_self(), "playback");
    const MutexLock lock(mutex_);
    while (!stopping_)
    {
        if (runOne(clock_.now()))
        {
            continue;
        }
        if (due_.empty())
        {
            changed_.wait(mutex_);
            continue;
        }
        const MonotonicTime next = WorkPool::aligned(due_.nextDue(), grain);
        changed_.waitUntil(mutex_, std::chrono::steady_clock::now() + (next - clock_.now()));
    }
}

bool PlaybackScheduler::runOne(MonotonicTime now)
{
    const std::optional<const PlaybackWork*> key = due_.takeDue(now);
    if (!key)
    {
        return false;
    }
    Entry& entry = entries_[*key];
    std::shared_ptr<PlaybackWork> work = entry.work.lock();
    if (!work)
    {
        entries_.erase(*key);
        return true;
    }
    entry.ticket.reset();
    entry.again = false;
    if (due_.nextDue() <= now)
    {
        changed_.notifyOne();
    }
    MonotonicTime due;
    {
        const MutexUnlock unlocked(mutex_);
        due = work->run(now);
    }
    settle(*key, due);
    // Destroys the session if this is the last reference, which takes time and other locks.
    const MutexUnlock unlocked(mutex_);
    work.reset();
    return true;
}

void PlaybackScheduler::settle(const PlaybackWork* key, MonotonicTime due)
{
    Entry& entry = entries_[key];
    if (entry.again)
    {
        due = std::min(due, clock_.now());
    }
    if (due == PlaybackWork::never)
    {
        entries_.erase(key);
        return;
    }
    entry.ticket = due_.add(due, key);
}

}  // namespace refhost
