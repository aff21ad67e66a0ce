#pragma once

#include <atomic>
#include <cstdint>

#include "refhost/base/HostClock.h"

namespace refhost
{
namespace test
{

/// A clock that a test sets. Wall clock and monotonic clock are equal until the wall clock is set.
class ManualClock : public HostClock
{
public:
    MonotonicTime now() const override
    {
        return MonotonicTime(Duration(nowNs_.load()));
    }

    WallTime wallNow() const override
    {
        return WallTime(Duration(nowNs_.load() + setNs_.load()));
    }

    void advance(Duration span)
    {
        nowNs_.fetch_add(span.count());
    }

    /// Sets the wall clock forward, or back.
    void setWall(Duration by)
    {
        setNs_.fetch_add(by.count());
    }

private:
    std::atomic<std::int64_t> nowNs_{1'700'000'000'000'000'000};
    std::atomic<std::int64_t> setNs_{0};
};

}  // namespace test
}  // namespace refhost
