#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "refhost/base/Mutex.h"
#include "refhost/base/SocketAddress.h"

namespace refhost
{

/// Admits a number of lines of each event and address, and counts the others. \see AuditLog
///
/// Keeps at most `maxBuckets` pairs of event and address; further ones share one for each event, which
/// admits as many lines as an address. Threads: any; one lock of its own.
class AuditLimiter
{
public:
    using Clock = std::chrono::steady_clock;

    struct Suppressed
    {
        std::string_view event;
        std::uint64_t lines = 0;
    };

    AuditLimiter(unsigned burst, Clock::duration refill, std::size_t maxBuckets);

    /// \param event  a constant
    /// \param now    not earlier than in any previous call
    bool admit(std::string_view event, const SocketAddress::Key& address, Clock::time_point now);

    /// The counts since the previous call, of events with suppressed lines. Forgets addresses that have all
    /// of their lines again.
    std::vector<Suppressed> take(Clock::time_point now);

    std::size_t buckets() const;

private:
    struct Key
    {
        std::string_view event;
        SocketAddress::Key network;

        bool operator==(const Key& other) const
        {
            return event == other.event && network == other.network;
        }
    };
    struct KeyHash
    {
        std::size_t operator()(const Key& key) const noexcept;
    };
    struct Bucket
    {
        unsigned lines;  // left at `since`
        Clock::time_point since;
    };

    bool draw(Bucket& bucket, Clock::time_point now) const;
    void refillBucket(Bucket& bucket, Clock::time_point now) const;

    const unsigned burst_;
    const Clock::duration refill_;
    const std::size_t maxBuckets_;
    mutable Mutex mutex_;
    std::unordered_map<Key, Bucket, KeyHash> buckets_ OV_GUARDED_BY(mutex_);
    std::map<std::string_view, Bucket> shared_ OV_GUARDED_BY(mutex_);  // of addresses beyond maxBuckets_
    std::map<std::string_view, std::uint64_t> suppressed_ OV_GUARDED_BY(mutex_);
};

}  // namespace refhost
