#pragma once
// Tested by tests/refhost/rtsp/auth/NonceStore_test.cpp.

#include <cstdint>
#include <functional>

namespace refhost
{

/// The time that limits are measured with: milliseconds of a clock that never goes back. A test brings its
/// own.
using MonotonicClock = std::function<std::int64_t()>;

/// Milliseconds of std::chrono::steady_clock, the clock that SessionLiveness is told by transports.
std::int64_t steadyMilliseconds();

}  // namespace refhost
