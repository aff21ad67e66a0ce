#pragma once
// Tested by tests/refhost/rtsp/auth/NonceStore_test.cpp.

#include <cstdint>
#include <functional>

#include "refhost/base/Times.h"

namespace refhost
{

/// The time that limits are measured with: milliseconds of a clock that never goes back. A test brings its
/// own.
using MonotonicClock = std::function<std::int64_t()>;

/// What `clock` shows, as an instant.
inline MonotonicTime readClock(const MonotonicClock& clock)
{
    return MonotonicTime(std::chrono::milliseconds(clock()));
}

/// Milliseconds of std::chrono::steady_clock, the clock that SessionLiveness is told by transports.
std::int64_t steadyMilliseconds();

}  // namespace refhost
