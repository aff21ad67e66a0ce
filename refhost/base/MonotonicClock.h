#pragma once
// Tested by tests/refhost/rtsp/auth/NonceStore_test.cpp.

#include <cstdint>
#include <functional>

#include "refhost/base/Times.h"

namespace refhost
{

/// The clock that time limits are measured with: milliseconds, never decreasing. Tests replace it.
using MonotonicClock = std::function<std::int64_t()>;

/// Present time of `clock`.
inline MonotonicTime readClock(const MonotonicClock& clock)
{
    return MonotonicTime(std::chrono::milliseconds(clock()));
}

/// Milliseconds of std::chrono::steady_clock, by which transports report activity to SessionLiveness.
std::int64_t steadyMilliseconds();

}  // namespace refhost
