#pragma once
// Tested by tests/refhost/hooks/HookCommand_test.cpp.

#include <cstddef>
#include <string>
#include <string_view>

#include "refhost/hooks/HookStop.h"

namespace refhost
{

/// Runs a command of a hook: /bin/sh -c COMMAND in a process group of its own, without a descriptor or a blocked signal
/// of the server, and without what the service manager passed to the server alone. Threads: any.
class HookCommand
{
public:
    /// Bytes of output that are kept for the log.
    static constexpr std::size_t maxKept = 1024;
    /// Bytes of output beyond which the command is ended.
    static constexpr std::size_t maxOutput = 1048576;

    /// Runs `command` with `input` on its standard input, until it ends; at the deadline, at the stop and with too much
    /// output its process group is killed. What it started in the background ends with it.
    /// Requires: SIGPIPE is blocked or ignored.
    /// \param stop  a descriptor that is readable, or whose other end is closed, once the command has to end
    static HookOutcome run(const std::string& command, std::string_view input,
                           HookStop::Clock::time_point deadline, int stop);
};

}  // namespace refhost
