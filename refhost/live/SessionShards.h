#pragma once
// Tested by tests/refhost/live/LiveDispatcher_test.cpp, tests/refhost/live/LiveSessionDispatcher_test.cpp.

#include <array>
#include <functional>
#include <mutex>
#include <string>
#include <unordered_map>

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
        std::mutex mutex;
        std::unordered_map<std::string, Entry> entries;
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
