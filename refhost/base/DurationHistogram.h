#pragma once
// Tested by tests/refhost/base/ServerFigures_test.cpp.

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>

#include "refhost/base/Times.h"

namespace refhost
{

/// Counts durations in buckets that are the same for all histograms. Threads: any; no lock.
class DurationHistogram
{
public:
    /// Upper bounds of the buckets in milliseconds, included; the last bucket has none.
    static constexpr std::array<int, 11> bounds{1, 5, 10, 25, 50, 100, 250, 500, 1000, 2500, 10000};

    struct Counts
    {
        std::array<std::uint64_t, bounds.size() + 1> buckets{};  ///< each alone
        Duration sum{};
    };

    /// Negative durations count as 0.
    void add(Duration duration)
    {
        std::size_t bucket = 0;
        while (bucket < bounds.size() && duration > std::chrono::milliseconds(bounds.at(bucket)))
        {
            ++bucket;
        }
        buckets_.at(bucket).fetch_add(1, std::memory_order_relaxed);
        sum_.fetch_add(duration.count() > 0 ? duration.count() : 0, std::memory_order_relaxed);
    }

    /// While others add, a duration may be in one of the two and not in the other yet.
    Counts counts() const
    {
        Counts all;
        for (std::size_t i = 0; i < buckets_.size(); ++i)
        {
            all.buckets.at(i) = buckets_.at(i).load(std::memory_order_relaxed);
        }
        all.sum = Duration(sum_.load(std::memory_order_relaxed));
        return all;
    }

private:
    std::array<std::atomic<std::uint64_t>, bounds.size() + 1> buckets_{};
    std::atomic<Duration::rep> sum_{0};
};

}  // namespace refhost
