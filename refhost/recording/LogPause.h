#pragma once
// Tested by tests/refhost/recording/Recorder_test.cpp.

#include <chrono>
#include <optional>

namespace refhost
{

/// Lets an event that may repeat without end into the log once in ten minutes. Threads: one at a time.
class LogPause
{
public:
    static constexpr std::chrono::minutes length{10};

    /// Whether the event is to be reported now: the first one, and then after each pause.
    bool isOver()
    {
        const auto now = std::chrono::steady_clock::now();
        if (reported_ && now - *reported_ < length)
        {
            return false;
        }
        reported_ = now;
        return true;
    }
    /// The next event is a first one again.
    void reset()
    {
        reported_.reset();
    }

private:
    std::optional<std::chrono::steady_clock::time_point> reported_;
};

}  // namespace refhost
