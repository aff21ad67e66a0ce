#pragma once

#include <set>
#include <string>

#include "refhost/base/HostClock.h"
#include "refhost/service/ServiceManager.h"
#include "refhost/threads/LoopMonitor.h"

namespace refhost
{

/// Feeds the service manager's watchdog while every event loop turns, so that the manager restarts a server
/// whose loop hangs. Logs which loop hangs, also without a manager. Threads: one at a time.
class LoopWatchdog
{
public:
    /// How long a loop may take for one turn; less where the manager's watchdog is faster.
    static constexpr Duration maxTurn = std::chrono::seconds(10);

    /// The arguments outlive this object.
    LoopWatchdog(ServiceManager& manager, LoopMonitor& loops, const HostClock& clock);

    /// To be called about once a second. The watchdog's time must not be shorter than two seconds.
    void check();

private:
    bool allTurn(MonotonicTime now);

    ServiceManager& manager_;
    LoopMonitor& loops_;
    const HostClock& clock_;
    const Duration limit_;
    std::set<std::string> hanging_;
};

}  // namespace refhost
