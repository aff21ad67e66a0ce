#pragma once
// Tested by tests/refhost/live/LiveDispatcher_test.cpp, tests/refhost/live/LiveSessionDispatcher_test.cpp.

#include <array>
#include <functional>
#include <string>
#include <unordered_map>

#include "refhost/base/Mutex.h"

namespace refhost
{

/// Entries by session id, under a few locks instead of one, because all threads add and remove sessions.
template <typename Entry>
class SessionShards
{
public:
    /// Guarded by its own mutex, which the caller takes.
    struct Shard
    {
        Mutex mutex;
        std::unordered_map<std::string, Entry> entries OV_GUARDED_BY(mutex);
    };

    /// The shard of an id, whether the session exists or not.
    Shard& of(const std::string& sessionId)
    {
        return shards_[std::hash<std::string>()(sessionId) % shards_.size()];
    }

private:
    std::array<Shard, 32> shards_;
};

}  // namespace refhost
