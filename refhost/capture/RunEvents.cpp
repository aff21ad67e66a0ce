#include "refhost/capture/RunEvents.h"

#include <utility>

#include "refhost/capture/AbandonedRuns.h"

namespace refhost
{

RunEvents::RunEvents(std::string title, const SourceRun::Events& events)
    : title_(std::move(title)), events_(events)
{
}

bool RunEvents::stop()
{
    muted_ = true;
    const MutexLock guard(mutex_);
    events_.described = nullptr;
    events_.ended = nullptr;
    events_.otherMeans = nullptr;
    events_.clockUnusable = nullptr;
    return !std::exchange(stopping_, true);
}

void RunEvents::mute()
{
    muted_ = true;
    const MutexLock guard(mutex_);
    events_ = SourceRun::Events();
}

bool RunEvents::awaitEnd(SourceRun::Clock::time_point deadline) const
{
    const MutexLock guard(mutex_);
    while (!ended_ && changed_.waitUntil(mutex_, deadline))
    {
    }
    return ended_;
}

void RunEvents::abandon()
{
    const MutexLock guard(mutex_);
    if (!ended_)
    {
        abandoned_ = true;
        AbandonedRuns::instance().change(title_, 1);
    }
}

void RunEvents::described() const
{
    const MutexLock guard(mutex_);
    if (events_.described)
    {
        events_.described();
    }
}

void RunEvents::ended(const SourceFailure& why) const
{
    const MutexLock guard(mutex_);
    if (events_.ended)
    {
        events_.ended(why);
    }
}

void RunEvents::otherMeans(const std::string& why) const
{
    const MutexLock guard(mutex_);
    if (events_.otherMeans)
    {
        events_.otherMeans(why);
    }
}

void RunEvents::clockUnusable(const std::string& why) const
{
    const MutexLock guard(mutex_);
    if (events_.clockUnusable)
    {
        events_.clockUnusable(why);
    }
}

void RunEvents::finish()
{
    const MutexLock guard(mutex_);
    ended_ = true;
    if (abandoned_)
    {
        AbandonedRuns::instance().change(title_, -1);
    }
    if (events_.stopped)
    {
        events_.stopped();
    }
    changed_.notifyAll();
}

}  // namespace refhost
