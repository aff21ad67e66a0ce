#pragma once

#include <chrono>

namespace refhost
{

/// Ends the process with a line on standard error and exit code 1 if its orderly end takes longer than a limit.
/// Uses SIGALRM and no thread. Threads: any; one object at a time.
class EndDeadline
{
public:
    /// \param limit  from now
    explicit EndDeadline(std::chrono::milliseconds limit);
    /// Cancels the deadline.
    ~EndDeadline();
    EndDeadline(const EndDeadline&) = delete;
    EndDeadline& operator=(const EndDeadline&) = delete;
};

}  // namespace refhost
