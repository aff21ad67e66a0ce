#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

#include "refhost/base/ConditionVariable.h"
#include "refhost/base/HostClock.h"
#include "refhost/threads/DueQueue.h"

namespace refhost
{

/// Something that a WorkPool does again and again.
class PooledWork
{
public:
    /// Nothing to do until WorkPool::wake().
    static constexpr MonotonicTime never = MonotonicTime::max();

    virtual ~PooledWork() = default;

    /// Does what is due, a bounded amount. It may block. Never called by two threads at once; what one call did
    /// is visible to the next.
    /// \returns when to be called again, or `never`
    virtual MonotonicTime run(MonotonicTime now) = 0;
};

/// Runs the work of many on a few threads, each when it is due and never on two threads at once.
///
/// Work that blocks holds up as many others as the pool has no further threads for. The threads start with the
/// first work. Threads: any; no call but close() and runDue() waits for work.
class WorkPool
{
public:
    struct Options
    {
        std::size_t threads = 2;  ///< 0: runDue() does the work
        /// Idle threads wake up at multiples of it: what is due at about the same time costs one wake-up, and may
        /// run later by this much.
        Duration grain = std::chrono::milliseconds(50);
        std::string name = "work";                      ///< of the threads, at most 15 characters
        const HostClock* clock = &HostClock::system();  ///< outlives the pool; threads need the system's
    };

    explicit WorkPool(Options options);
    ~WorkPool();
    WorkPool(const WorkPool&) = delete;
    WorkPool& operator=(const WorkPool&) = delete;

    /// Has `work` run after `delay`, or earlier where it is to run earlier anyway; once more where it runs
    /// now. The pool keeps it until then. When `work` itself asked to run again, the pool does not keep it: it is
    /// dropped with its last owner. Ignored after close().
    void wake(const std::shared_ptr<PooledWork>& work, Duration delay = Duration::zero());

    /// Runs due work on this thread, at most `max` runs.
    /// \returns how many runs were made
    std::size_t runDue(std::size_t max = 10'000);

    /// When the next work is due, or PooledWork::never.
    MonotonicTime nextDue() const;

    /// Waits for the work that runs now, drops the rest and ends the threads, as the destructor does. Not
    /// from work of this pool.
    void close();

    /// How many wait or run.
    std::size_t size() const;

    /// The first multiple of `grain` that is not before `due`; `due` itself where the grain is 0.
    static MonotonicTime aligned(MonotonicTime due, Duration grain);

private:
    using Queue = DueQueue<PooledWork*>;

    struct Entry
    {
        std::weak_ptr<PooledWork> work;
        std::shared_ptr<PooledWork> kept;     ///< null where the work asked to run again
        std::optional<Queue::Ticket> ticket;  ///< nothing while it runs
        std::optional<MonotonicTime> again;   ///< woken while it runs
    };

    void makeThreads() OV_REQUIRES(mutex_);
    void serve();
    void sleep() OV_REQUIRES(mutex_);
    bool runOne(MonotonicTime now) OV_REQUIRES(mutex_);
    void settle(PooledWork* key, MonotonicTime due) OV_REQUIRES(mutex_);

    const Options options_;
    mutable Mutex mutex_;
    ConditionVariable changed_;
    std::unordered_map<PooledWork*, Entry> entries_ OV_GUARDED_BY(mutex_);
    Queue due_ OV_GUARDED_BY(mutex_);
    /// When some thread wakes up by itself; `never` where none is known to.
    MonotonicTime watched_ OV_GUARDED_BY(mutex_) = PooledWork::never;
    bool closing_ OV_GUARDED_BY(mutex_) = false;
    bool failureReported_ OV_GUARDED_BY(mutex_) = false;
    std::vector<std::thread> threads_ OV_GUARDED_BY(mutex_);
};

}  // namespace refhost
