#pragma once

#include <atomic>
#include <string>

#include "refhost/base/ConditionVariable.h"
#include "refhost/base/Mutex.h"
#include "refhost/capture/SourceRun.h"

namespace refhost
{

/// The events of a SourceRun, and its end: what the run reports and what its owner withdraws meet here.
///
/// Threads: any. Events are called with a lock of its own, so that none is called once stop() or mute() has
/// returned.
class RunEvents
{
public:
    /// \param title  the stream's name in the log, under which an abandoned run counts
    RunEvents(std::string title, const SourceRun::Events& events);
    RunEvents(const RunEvents&) = delete;
    RunEvents& operator=(const RunEvents&) = delete;

    // The owner's side.

    /// As SourceRun::stop().
    /// \returns false the second time
    bool stop();
    /// As SourceRun::mute().
    void mute();
    /// As SourceRun::awaitEnd().
    bool awaitEnd(SourceRun::Clock::time_point deadline) const;
    /// Counts the run as abandoned until finish(), unless that was called.
    void abandon();

    // The run's side.

    /// Whether stop() or mute() was called: media are not delivered any more.
    bool isMuted() const
    {
        return muted_;
    }
    void described() const;
    void ended(const SourceFailure& why) const;
    void otherMeans(const std::string& why) const;
    void clockUnusable(const std::string& why) const;
    /// stop() is complete.
    void finish();

private:
    const std::string title_;
    std::atomic<bool> muted_{false};
    mutable Mutex mutex_;
    mutable ConditionVariable changed_;
    SourceRun::Events events_ OV_GUARDED_BY(mutex_);
    bool stopping_ OV_GUARDED_BY(mutex_) = false;
    bool ended_ OV_GUARDED_BY(mutex_) = false;
    bool abandoned_ OV_GUARDED_BY(mutex_) = false;
};

}  // namespace refhost
