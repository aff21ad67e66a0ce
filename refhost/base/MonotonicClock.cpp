#include "refhost/base/MonotonicClock.h"

#include <chrono>

namespace refhost
{

std::int64_t steadyMilliseconds()
{
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
}

}  // namespace refhost
