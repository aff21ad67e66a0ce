#pragma once
// Tested by tests/refhost/recording/Recorder_test.cpp.

#include <chrono>
#include <optional>

#include "refhost/base/HostClock.h"

namespace refhost
{

/// Limits the log lines of a repeating event to one in ten minutes. Threads: one at a time.
class LogPause
{
public:
    static constexpr std::chrono::minutes length{10};

    /// Whether to report the event now: true for the first one, then after each pause.
    bool isOver()
    {
        const MonotonicTime now = HostClock::system().now();
        if (reported_ && now - *reported_ < length)
        {
            return false;
        }
        reported_ = now;
        return true;
    }
    /// Makes the next event a first one.
    void reset()
    {
        reported_.reset();
    }

private:
    std::optional<MonotonicTime> reported_;
};

}  // namespace refhost
