#include "refhost/live/LiveTrack.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include "refhost/live/LiveSession.h"

namespace refhost
{
namespace
{

/// What audio keeps without a video to follow.
constexpr std::chrono::seconds maxAudioPast(2);

}  // namespace

LiveTrack::LiveTrack(bool video, std::shared_ptr<StreamPast> past, const LiveSettings& settings)
    : video_(video), past_(std::move(past)), settings_(settings)
{
}

LiveTrack::~LiveTrack() = default;

void LiveTrack::onAccessUnit(AccessUnitPtr unit)
{
    if (!unit || unit->packets.empty())
    {
        return;
    }
    std::uint32_t epoch = 0;
    const std::uint64_t index = push(unit, epoch);
    refreshSubscribers();
    if (subscribers_.empty())
    {
        return;
    }
    // Regularly, so that senders notice when the clock is set.
    settings_.clock->wall().mapping();
    const FreshUnit fresh{this, index, epoch, unit, settings_.clock->now()};
    // Thousands of viewers do not fit the caches: what the next one needs comes while this one is served.
    const std::size_t count = subscribers_.size();
    for (std::size_t i = 0; i < count; ++i)
    {
        if (i + 2 < count)
        {
            subscribers_[i + 2]->prefetchFirst();
        }
        if (i + 1 < count)
        {
            subscribers_[i + 1]->prefetch();
        }
        subscribers_[i]->pump(&fresh);
    }
}

void LiveTrack::onDiscontinuity()
{
    std::deque<Entry> old;
    {
        const MutexLock guard(ringMutex_);
        old.swap(ring_);
        ringBytes_ = 0;
        startable_ = false;
        ++epoch_;
        // Skips a number, which puts every sender behind the ring, so that each makes a new start.
        base_ = head_.load(std::memory_order_relaxed) + 1;
        head_.store(base_, std::memory_order_release);
    }
    if (video_)
    {
        past_->videoSince.store(StreamPast::none, std::memory_order_relaxed);
    }
    refreshSubscribers();
}

LiveTrack::View LiveTrack::look(std::uint64_t index) const
{
    const MutexLock guard(ringMutex_);
    return {base_, head_.load(std::memory_order_relaxed), start_, startable_, found(index)};
}

LiveTrack::Found LiveTrack::newestStart() const
{
    const MutexLock guard(ringMutex_);
    return startable_ ? found(start_) : Found();
}

LiveTrack::Found LiveTrack::firstSince(MonotonicTime capture, std::uint64_t earliest) const
{
    const MutexLock guard(ringMutex_);
    const auto begin = ring_.begin() + static_cast<std::ptrdiff_t>(std::min<std::uint64_t>(
                                           earliest > base_ ? earliest - base_ : 0, ring_.size()));
    const auto at = std::lower_bound(begin, ring_.end(), capture,
                                     [](const Entry& entry, MonotonicTime time)
                                     { return entry.unit->captureTime < time; });
    return found(base_ + static_cast<std::uint64_t>(at - ring_.begin()));
}

void LiveTrack::join(std::shared_ptr<LiveSession> session, SubscriberSlot& slot)
{
    const MutexLock guard(membersMutex_);
    slot = members_.size();
    members_.push_back({std::move(session), &slot});
    membersChanged_.store(true, std::memory_order_release);
}

void LiveTrack::leave(SubscriberSlot& slot)
{
    Member gone;
    const MutexLock guard(membersMutex_);
    gone = std::move(members_[slot]);
    if (slot + 1 < members_.size())
    {
        members_[slot] = std::move(members_.back());
        *members_[slot].slot = slot;
    }
    members_.pop_back();
    slot = noSlot;
    membersChanged_.store(true, std::memory_order_release);
}

std::size_t LiveTrack::viewers() const
{
    const MutexLock guard(membersMutex_);
    return members_.size();
}

std::uint64_t LiveTrack::push(AccessUnitPtr unit, std::uint32_t& epoch)
{
    const MutexLock guard(ringMutex_);
    const std::uint64_t index = head_.load(std::memory_order_relaxed);
    if (unit->keyFrame || !video_)
    {
        previous_ = startable_ ? start_ : index;
        start_ = index;
        startable_ = true;
    }
    ringBytes_ += unit->bytes.size();
    ring_.push_back({std::move(unit), epoch_});
    epoch = epoch_;
    head_.store(index + 1, std::memory_order_release);
    trim();
    return index;
}

void LiveTrack::trim()
{
    while (ring_.size() > 1 && (ringBytes_ > settings_.ringBytes || ring_.size() > settings_.ringUnits))
    {
        popFront();
    }
    if (video_)
    {
        while (startable_ && base_ < previous_)
        {
            popFront();
        }
        past_->videoSince.store(ring_.front().unit->captureTime, std::memory_order_relaxed);
        return;
    }
    const MonotonicTime since = std::min(past_->videoSince.load(std::memory_order_relaxed),
                                         ring_.back().unit->captureTime - maxAudioPast);
    while (ring_.size() > 1 && ring_.front().unit->captureTime < since)
    {
        popFront();
    }
}

void LiveTrack::popFront()
{
    ringBytes_ -= ring_.front().unit->bytes.size();
    ring_.pop_front();
    ++base_;
    startable_ = startable_ && start_ >= base_;
}

void LiveTrack::refreshSubscribers()
{
    if (!membersChanged_.load(std::memory_order_acquire))
    {
        return;
    }
    const MutexLock guard(membersMutex_);
    membersChanged_.store(false, std::memory_order_relaxed);
    subscribers_.clear();
    for (const Member& member : members_)
    {
        subscribers_.push_back(member.session);
    }
}

LiveTrack::Found LiveTrack::found(std::uint64_t index) const
{
    if (index < base_ || index - base_ >= ring_.size())
    {
        return {};
    }
    const Entry& entry = ring_[static_cast<std::size_t>(index - base_)];
    return {entry.unit, index, entry.epoch};
}

}  // namespace refhost
