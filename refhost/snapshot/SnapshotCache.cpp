#include "refhost/snapshot/SnapshotCache.h"

namespace refhost
{

SnapshotCache::Jpeg SnapshotCache::find(const std::string& key)
{
    const MutexLock guard(mutex_);
    const auto found = places_.find(key);
    if (found == places_.end())
    {
        return nullptr;
    }
    entries_.splice(entries_.begin(), entries_, found->second);
    return found->second->second;
}

void SnapshotCache::add(const std::string& key, Jpeg jpeg)
{
    const MutexLock guard(mutex_);
    if (jpeg->size() > maxBytes_ || places_.count(key) != 0)
    {
        return;
    }
    bytes_ += jpeg->size();
    entries_.emplace_front(key, std::move(jpeg));
    places_[key] = entries_.begin();
    while (bytes_ > maxBytes_ || entries_.size() > maxEntries)
    {
        bytes_ -= entries_.back().second->size();
        places_.erase(entries_.back().first);
        entries_.pop_back();
    }
}

std::size_t SnapshotCache::bytes() const
{
    const MutexLock guard(mutex_);
    return bytes_;
}

std::size_t SnapshotCache::count() const
{
    const MutexLock guard(mutex_);
    return entries_.size();
}

}  // namespace refhost
