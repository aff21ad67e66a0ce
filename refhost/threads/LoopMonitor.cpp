#include "refhost/threads/LoopMonitor.h"

#include <algorithm>
#include <chrono>

#include "refhost/threads/EventLoop.h"

namespace refhost
{

LoopMonitor& LoopMonitor::instance()
{
    static LoopMonitor monitor;
    return monitor;
}

void LoopMonitor::add(EventLoop& loop, const std::string& name)
{
    const MutexLock guard(mutex_);
    loops_[&loop].name = name;
}

void LoopMonitor::remove(EventLoop& loop)
{
    const MutexLock guard(mutex_);
    loops_.erase(&loop);
}

std::vector<LoopMonitor::Waiting> LoopMonitor::check(MonotonicTime now)
{
    constexpr Duration longest = std::chrono::seconds(2);
    std::vector<Waiting> waiting;
    const MutexLock guard(mutex_);
    const Duration passed = std::min(now - last_, longest);
    last_ = now;
    for (auto& [loop, entry] : loops_)
    {
        if (entry.ran != nullptr && !entry.ran->load(std::memory_order_acquire))
        {
            entry.waited += passed;
            waiting.push_back({entry.name, entry.waited});
            continue;
        }
        entry.waited = Duration::zero();
        entry.ran = std::make_shared<std::atomic<bool>>(false);
        const auto lateness = [lag = entry.lag, posted = std::chrono::steady_clock::now()]
        { lag->store(std::chrono::steady_clock::now() - posted, std::memory_order_relaxed); };
        loop->post(
            [ran = entry.ran, lateness]
            {
                lateness();
                ran->store(true, std::memory_order_release);
            });
    }
    return waiting;
}

std::vector<LoopMonitor::Waiting> LoopMonitor::lags() const
{
    std::vector<Waiting> all;
    const MutexLock guard(mutex_);
    for (const auto& [loop, entry] : loops_)
    {
        all.push_back({entry.name, std::max(entry.lag->load(std::memory_order_relaxed), entry.waited)});
    }
    return all;
}

}  // namespace refhost
