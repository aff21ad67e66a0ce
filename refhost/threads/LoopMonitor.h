#pragma once

#include <atomic>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "refhost/base/Mutex.h"
#include "refhost/base/Times.h"

namespace refhost
{

class EventLoop;

/// Knows which of the process's event loops turn: it posts a task to each now and then, and measures how long
/// the task waits. Every EventLoop enters itself. Threads: any; nothing waits for a loop.
class LoopMonitor
{
public:
    /// A loop whose task waits.
    struct Waiting
    {
        std::string name;  ///< of the loop
        Duration waited;   ///< since when; intervals between two calls of check() count two seconds at most
    };

    /// That of this process.
    static LoopMonitor& instance();

    LoopMonitor() = default;
    LoopMonitor(const LoopMonitor&) = delete;
    LoopMonitor& operator=(const LoopMonitor&) = delete;

    /// Requires: the loop takes tasks until remove().
    void add(EventLoop& loop, const std::string& name);
    void remove(EventLoop& loop);

    /// Posts a task to each loop whose last one has run. To be called about once a second: a process that was
    /// stopped, or a machine that slept, is no loop that hangs.
    /// \param now  not before that of the last call
    /// \returns the loops whose task waits since an earlier call
    std::vector<Waiting> check(MonotonicTime now);

    /// How long the last task that ran had waited, of each loop.
    std::vector<Waiting> lags() const;

private:
    struct Entry
    {
        std::string name;
        std::shared_ptr<std::atomic<bool>> ran;  ///< null before the first task
        Duration waited{};
        std::shared_ptr<std::atomic<Duration>> lag =
            std::make_shared<std::atomic<Duration>>(Duration::zero());
    };

    mutable Mutex mutex_;
    std::map<EventLoop*, Entry> loops_ OV_GUARDED_BY(mutex_);
    MonotonicTime last_ OV_GUARDED_BY(mutex_);
};

}  // namespace refhost
