#pragma once
// Tested by tests/refhost/hooks/Hooks_test.cpp.

#include <chrono>
#include <string>

#include "refhost/base/Descriptor.h"

namespace refhost
{

/// How a hook's command or request ended.
struct HookOutcome
{
    bool done = false;  ///< exit status 0, or an answer of 2xx
    std::string text;   ///< why not, for the log: one line
};

/// When a hook is to end, whatever it waits for: its deadline, or the end of the server.
///
/// Threads: stop() any; the rest any.
class HookStop
{
public:
    using Clock = std::chrono::steady_clock;

    /// \throws std::system_error without a descriptor
    HookStop();

    /// Ends all that waits, for good.
    void stop();
    bool isStopped() const;

    /// Readable once stop() was called.
    int descriptor() const
    {
        return event_.get();
    }

    /// Milliseconds to `deadline` for poll(), rounded up; 0 when it is over.
    static int millisecondsTo(Clock::time_point deadline);

private:
    Descriptor event_;
};

}  // namespace refhost
