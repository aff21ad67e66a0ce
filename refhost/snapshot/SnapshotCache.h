#pragma once

#include <cstddef>
#include <list>
#include <memory>
#include <string>
#include <unordered_map>
#include <utility>

#include "refhost/base/Mutex.h"

namespace refhost
{

/// The latest snapshots, of a bounded size. Threads: any.
class SnapshotCache
{
public:
    using Jpeg = std::shared_ptr<const std::string>;

    static constexpr std::size_t maxEntries = 256;

    /// \param maxBytes  of all snapshots; the longest unused go first
    explicit SnapshotCache(std::size_t maxBytes = std::size_t{16} << 20U) : maxBytes_(maxBytes) {}

    /// \returns null when it is not there
    Jpeg find(const std::string& key);
    /// Keeps a snapshot, unless it is larger than the whole cache.
    void add(const std::string& key, Jpeg jpeg);

    /// Bytes of all snapshots.
    std::size_t bytes() const;
    std::size_t count() const;

private:
    using Entry = std::pair<std::string, Jpeg>;

    const std::size_t maxBytes_;
    mutable Mutex mutex_;
    std::list<Entry> entries_ OV_GUARDED_BY(mutex_);  // the latest used first
    std::unordered_map<std::string, std::list<Entry>::iterator> places_ OV_GUARDED_BY(mutex_);
    std::size_t bytes_ OV_GUARDED_BY(mutex_) = 0;
};

}  // namespace refhost
