#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <thread>
#include <unordered_map>
#include <vector>

#include "refhost/base/ConditionVariable.h"
#include "refhost/base/Times.h"
#include "refhost/threads/DueQueue.h"

namespace refhost
{

/// Something that a WorkPool does again and again.
class PooledWork
{
public:
    virtual ~PooledWork() = default;

    /// Does what there is to do, in one bounded go. It may block. Never called by two threads at once; what
    /// one call did is visible to the next.
    virtual void run() = 0;
};

/// Runs the work of many on a few threads, each when it is due and never on two threads at once.
///
/// Work that blocks holds up as many others as the pool has no further threads for. Delayed work is aligned
/// to a grain, so that what is due at about the same time costs one wake-up. The threads start with the first
/// work. Threads: any; no call but close() waits for work.
class WorkPool
{
public:
    struct Options
    {
        std::size_t threads = 2;                         ///< at least 1
        Duration grain = std::chrono::milliseconds(50);  ///< delayed work may run later by this much
    };

    explicit WorkPool(const Options& options);
    ~WorkPool();
    WorkPool(const WorkPool&) = delete;
    WorkPool& operator=(const WorkPool&) = delete;

    /// Has `work` run after `delay`, or earlier where it is to run earlier anyway; once more where it runs
    /// now. The pool keeps it until then. Ignored after close().
    void wake(const std::shared_ptr<PooledWork>& work, Duration delay = Duration::zero());

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
        std::shared_ptr<PooledWork> work;
        std::optional<Queue::Ticket> ticket;  ///< nothing while it runs
        std::optional<MonotonicTime> again;   ///< woken while it runs
    };

    void makeThreads() OV_REQUIRES(mutex_);
    void serve();
    bool runOne(MonotonicTime now) OV_REQUIRES(mutex_);

    const Options options_;
    mutable Mutex mutex_;
    ConditionVariable changed_;
    std::unordered_map<PooledWork*, Entry> entries_ OV_GUARDED_BY(mutex_);
    Queue due_ OV_GUARDED_BY(mutex_);
    bool closing_ OV_GUARDED_BY(mutex_) = false;
    bool failureReported_ OV_GUARDED_BY(mutex_) = false;
    std::vector<std::thread> threads_ OV_GUARDED_BY(mutex_);
};

}  // namespace refhost
