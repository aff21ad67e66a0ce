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

/// What a worker does for one session again and again. It may read from a disk.
class PlaybackWork
{
public:
    /// There is nothing to do until somebody wakes the work.
    static constexpr MonotonicTime never = MonotonicTime::max();

    virtual ~PlaybackWork() = default;

    /// Does what is due, in one bounded go; never called by two threads at once.
    /// \returns when to be called again, or `never`
    virtual MonotonicTime run(MonotonicTime now) = 0;
};

/// Runs the work of all playback sessions on a few threads, each when it is due.
///
/// Keeps weak hold of idle work: what nobody else holds any more is dropped. Threads: any.
class PlaybackScheduler
{
public:
    /// \param clock  outlives the scheduler
    explicit PlaybackScheduler(const HostClock& clock);
    ~PlaybackScheduler();
    PlaybackScheduler(const PlaybackScheduler&) = delete;
    PlaybackScheduler& operator=(const PlaybackScheduler&) = delete;

    /// Starts threads that follow the system's clock. Without them runDue() does the work.
    void start(unsigned threads);
    /// Waits for the work that runs now and ends the threads.
    void stop();

    /// Has `work` run as soon as a thread is free; once more, if it runs right now.
    void wake(const std::shared_ptr<PlaybackWork>& work);

    /// Runs on this thread what is due by the clock, until nothing is or `max` runs were made.
    /// \returns how many runs were made
    std::size_t runDue(std::size_t max = 10'000);

    /// When the next work is due, or PlaybackWork::never.
    MonotonicTime nextDue() const;

    /// How many works are known: those that wait for their time or run.
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
