#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>

#include "refhost/base/MonotonicClock.h"

namespace refhost
{

/// The real clock plus an offset that a test sets, so that the times which transports report still fit.
class SteppedClock
{
public:
    void advance(std::int64_t milliseconds)
    {
        *offset_ += milliseconds;
    }

    void advance(std::chrono::milliseconds span)
    {
        advance(static_cast<std::int64_t>(span.count()));
    }

    MonotonicClock clock() const
    {
        return [offset = offset_] { return steadyMilliseconds() + *offset; };
    }

private:
    std::shared_ptr<std::atomic<std::int64_t>> offset_ = std::make_shared<std::atomic<std::int64_t>>(0);
};

}  // namespace refhost
