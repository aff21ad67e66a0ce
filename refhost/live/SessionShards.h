#pragma once
// Tested by tests/refhost/live/LiveDispatcher_test.cpp, tests/refhost/live/LiveSessionDispatcher_test.cpp.

#include <array>
#include <functional>
#include <string>
#include <unordered_map>

#include "refhost/base/Mutex.h"

namespace refhost
{

/// Entries by session id under a few locks instead of one, because sessions come and go on all threads.
template <typename Entry>
class SessionShards
{
public:
    /// Guarded by its own mutex, which the user takes.
    struct Shard
    {
        Mutex mutex;
        std::unordered_map<std::string, Entry> entries OV_GUARDED_BY(mutex);
    };

    /// The shard of an id, whether there is such a session or not.
    Shard& of(const std::string& sessionId)
    {
        return shards_[std::hash<std::string>()(sessionId) % shards_.size()];
    }

private:
    std::array<Shard, 32> shards_;
};

}  // namespace refhost
