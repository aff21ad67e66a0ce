#pragma once

#include <chrono>

namespace refhost
{

/// Ends the process when its orderly end takes longer than so long, whatever hangs: with a line on standard
/// error and exit code 1. It needs no thread. Threads: one object at a time.
class EndDeadline
{
public:
    explicit EndDeadline(std::chrono::milliseconds time);
    /// Ended in time.
    ~EndDeadline();
    EndDeadline(const EndDeadline&) = delete;
    EndDeadline& operator=(const EndDeadline&) = delete;
};

}  // namespace refhost
