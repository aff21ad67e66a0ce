#include "refhost/service/LoopWatchdog.h"

#include <algorithm>
#include <utility>

#include "refhost/base/Log.h"

namespace refhost
{

LoopWatchdog::LoopWatchdog(ServiceManager& manager, LoopMonitor& loops, const HostClock& clock)
    : manager_(manager),
      loops_(loops),
      clock_(clock),
      limit_(std::min<Duration>(maxTurn, manager.watchdogTime().value_or(Duration::max()) / 2))
{
}

void LoopWatchdog::check()
{
    if (allTurn(clock_.now()) && manager_.watchdogTime())
    {
        manager_.alive();
    }
}

bool LoopWatchdog::allTurn(MonotonicTime now)
{
    std::set<std::string> hanging;
    for (const LoopMonitor::Waiting& loop : loops_.check(now))
    {
        if (loop.waited < limit_)
        {
            continue;
        }
        hanging.insert(loop.name);
        if (hanging_.count(loop.name) == 0)
        {
            Log::error("the event loop {} hangs: one of its turns takes longer than {} s{}", loop.name,
                       std::chrono::floor<std::chrono::seconds>(limit_).count(),
                       manager_.watchdogTime() ? "; the service manager will restart the server" : "");
        }
    }
    for (const std::string& name : hanging_)
    {
        if (hanging.count(name) == 0)
        {
            Log::info("the event loop {} turns again", name);
        }
    }
    hanging_ = std::move(hanging);
    return hanging_.empty();
}

}  // namespace refhost
