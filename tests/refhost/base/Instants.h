#pragma once

#include <chrono>
#include <cstdint>

#include "refhost/base/Times.h"

namespace refhost
{
namespace test
{

/// The instant so many milliseconds after the epoch of the monotonic clock.
constexpr MonotonicTime atMs(std::int64_t milliseconds)
{
    return MonotonicTime(std::chrono::milliseconds(milliseconds));
}

}  // namespace test
}  // namespace refhost
