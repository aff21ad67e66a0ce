#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <thread>
#include <unordered_map>
#include <vector>

#include "refhost/base/ConditionVariable.h"
#include "refhost/base/HostClock.h"
#include "refhost/threads/DueQueue.h"

namespace refhost
{

/// Work of one session that a worker runs repeatedly. It may read from a disk.
class PlaybackWork
{
public:
    /// Nothing to do until wake().
    static constexpr MonotonicTime never = MonotonicTime::max();

    virtual ~PlaybackWork() = default;

    /// Does what is due, a bounded amount; never called by two threads at once.
    /// \returns when to be called again, or `never`
    virtual MonotonicTime run(MonotonicTime now) = 0;
};

/// Runs the work of all playback sessions on a few threads, each when it is due.
///
/// Idle work is held weakly: it is dropped when its owner drops it. Threads: any.
class PlaybackScheduler
{
public:
    /// \param clock  outlives the scheduler
    explicit PlaybackScheduler(const HostClock& clock);
    ~PlaybackScheduler();
    PlaybackScheduler(const PlaybackScheduler&) = delete;
    PlaybackScheduler& operator=(const PlaybackScheduler&) = delete;

    /// Starts threads, named "playback", that follow the system's clock. Without them runDue() does the work.
    void start(unsigned threads);
    /// Ends the threads; waits for running work.
    void stop();

    /// Runs `work` as soon as a thread is free; once more if it runs now.
    void wake(const std::shared_ptr<PlaybackWork>& work);

    /// Runs due work on this thread, at most `max` runs.
    /// \returns how many runs were made
    std::size_t runDue(std::size_t max = 10'000);

    /// When the next work is due, or PlaybackWork::never.
    MonotonicTime nextDue() const;

    /// Number of works that are due later or run now.
    std::size_t size() const;

private:
    using Queue = DueQueue<const PlaybackWork*>;

    struct Entry
    {
        std::weak_ptr<PlaybackWork> work;
        std::optional<Queue::Ticket> ticket;  // nothing while it runs
        bool again = false;                   // it was woken while it runs
    };

    void serve();
    bool runOne(MonotonicTime now) OV_REQUIRES(mutex_);
    void settle(const PlaybackWork* key, MonotonicTime due) OV_REQUIRES(mutex_);

    const HostClock& clock_;
    mutable Mutex mutex_;
    ConditionVariable changed_;
    std::unordered_map<const PlaybackWork*, Entry> entries_ OV_GUARDED_BY(mutex_);
    Queue due_ OV_GUARDED_BY(mutex_);
    bool stopping_ OV_GUARDED_BY(mutex_) = false;
    std::vector<std::thread> threads_ OV_GUARDED_BY(mutex_);
};

}  // namespace refhost
