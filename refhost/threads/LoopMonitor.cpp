#include "refhost/threads/LoopMonitor.h"

#include <algorithm>

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
        loop->post([ran = entry.ran] { ran->store(true, std::memory_order_release); });
    }
    return waiting;
}

}  // namespace refhost
