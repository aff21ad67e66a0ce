#include "refhost/ingest/client/ClientDeadlines.h"

#include <algorithm>
#include <utility>

#include "refhost/base/HostClock.h"

namespace refhost
{

ClientDeadlines::ClientDeadlines(EventLoop& loop, std::function<void()> onDue)
    : loop_(loop), onDue_(std::move(onDue))
{
    due_.fill(MonotonicTime::max());
}

ClientDeadlines::~ClientDeadlines()
{
    loop_.cancel(timer_);
}

void ClientDeadlines::setOwner(std::weak_ptr<void> owner)
{
    owner_ = std::move(owner);
}

void ClientDeadlines::keepOwner()
{
    keepsOwner_ = true;
    timerDue_ = MonotonicTime::max();  // the next timer is one that keeps it
}

void ClientDeadlines::set(Deadline which, MonotonicTime due)
{
    due_[static_cast<std::size_t>(which)] = due;
    if (due < timerDue_)
    {
        arm();
    }
}

void ClientDeadlines::clearAll()
{
    due_.fill(MonotonicTime::max());
}

void ClientDeadlines::cancel()
{
    owner_.reset();
    loop_.cancel(std::exchange(timer_, {}));
}

void ClientDeadlines::arm()
{
    const MonotonicTime due = *std::min_element(due_.begin(), due_.end());
    if (due == MonotonicTime::max() || owner_.expired())
    {
        return;
    }
    loop_.cancel(timer_);
    timerDue_ = due;
    timer_ = loop_.after(due - HostClock::system().now(),
                         [this, weak = owner_, held = keepsOwner_ ? owner_.lock() : nullptr]
                         {
                             if (const auto owner = weak.lock())
                             {
                                 onTimer();
                             }
                         });
}

void ClientDeadlines::onTimer()
{
    timerDue_ = MonotonicTime::max();
    onDue_();
    if (timerDue_ == MonotonicTime::max())
    {
        arm();
    }
}

}  // namespace refhost
