#pragma once

#include <atomic>

#include "refhost/base/HostClock.h"

namespace refhost
{

/// The real clock plus an offset that a test sets, so that the times which transports report still fit.
class SteppedClock : public HostClock
{
public:
    MonotonicTime now() const override
    {
        return system().now() + offset_.load();
    }

    WallTime wallNow() const override
    {
        return system().wallNow() + offset_.load();
    }

    void advance(Duration span)
    {
        offset_ = offset_.load() + span;
    }

private:
    std::atomic<Duration> offset_{Duration::zero()};
};

}  // namespace refhost
