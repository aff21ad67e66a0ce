#include "refhost/base/AuditLimiter.h"

#include <algorithm>
#include <functional>

namespace refhost
{

std::size_t AuditLimiter::KeyHash::operator()(const Key& key) const noexcept
{
    return SocketAddress::KeyHash()(key.network) * 31 + std::hash<std::string_view>()(key.event);
}

AuditLimiter::AuditLimiter(unsigned burst, Clock::duration refill, std::size_t maxBuckets)
    : burst_(burst), refill_(refill), maxBuckets_(maxBuckets)
{
}

bool AuditLimiter::admit(std::string_view event, const SocketAddress::Key& address, Clock::time_point now)
{
    const Key key{event, SocketAddress::networkOf(address)};
    const Bucket full{burst_, now};
    const MutexLock guard(mutex_);
    auto found = buckets_.find(key);
    if (found == buckets_.end() && buckets_.size() < maxBuckets_)
    {
        found = buckets_.emplace(key, full).first;
    }
    const bool admitted =
        draw(found == buckets_.end() ? shared_.emplace(event, full).first->second : found->second, now);
    if (!admitted)
    {
        ++suppressed_[event];
    }
    return admitted;
}

void AuditLimiter::refillBucket(Bucket& bucket, Clock::time_point now) const
{
    const auto more = (now - bucket.since) / refill_;
    if (more >= static_cast<long>(burst_ - bucket.lines))
    {
        bucket = {burst_, now};
        return;
    }
    bucket.lines += static_cast<unsigned>(more);
    bucket.since += more * refill_;
}

bool AuditLimiter::draw(Bucket& bucket, Clock::time_point now) const
{
    refillBucket(bucket, now);
    if (bucket.lines == 0)
    {
        return false;
    }
    --bucket.lines;
    return true;
}

std::vector<AuditLimiter::Suppressed> AuditLimiter::take(Clock::time_point now)
{
    std::vector<Suppressed> taken;
    const MutexLock guard(mutex_);
    for (auto bucket = buckets_.begin(); bucket != buckets_.end();)
    {
        refillBucket(bucket->second, now);
        bucket = bucket->second.lines == burst_ ? buckets_.erase(bucket) : std::next(bucket);
    }
    for (const auto& [event, lines] : suppressed_)
    {
        taken.push_back({event, lines});
    }
    suppressed_.clear();
    return taken;
}

std::size_t AuditLimiter::buckets() const
{
    const MutexLock guard(mutex_);
    return buckets_.size();
}

}  // namespace refhost
