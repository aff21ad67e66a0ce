#pragma once

#include <cstdint>

#include "refhost/base/Times.h"

namespace refhost
{
namespace test
{

// Times as plain numbers, for tests that compute with them.

template <class Clock>
std::int64_t nsOf(std::chrono::time_point<Clock, Duration> instant)
{
    return instant.time_since_epoch().count();
}

inline std::int64_t nsOf(Duration span)
{
    return span.count();
}

template <class Clock>
std::int64_t msOf(std::chrono::time_point<Clock, Duration> instant)
{
    return std::chrono::floor<std::chrono::milliseconds>(instant.time_since_epoch()).count();
}

inline MonotonicTime instantOf(std::int64_t ns)
{
    return MonotonicTime(Duration(ns));
}

}  // namespace test
}  // namespace refhost
