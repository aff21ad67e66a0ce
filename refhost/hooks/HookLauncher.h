#pragma once
// Tested by tests/refhost/hooks/HookLauncher_test.cpp.

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <memory>
#include <string>

#include "refhost/base/Descriptor.h"
#include "refhost/config/Config.h"
#include "refhost/hooks/HookStop.h"

namespace refhost
{

/// A process that runs the commands of hooks for a server that denies itself to start programs.
///
/// It is forked before the server enters its sandbox, and knows the commands from then on: the server can ask for one of
/// them and give it an event, and nothing else. Each command has a process of its own that runs HookCommand, with a channel
/// to the thread of the server that waits for it; when that end is closed, by the server's end too, however it comes, the
/// command is killed. The process ends with the server.
///
/// Threads: run() any; construction before the process has other threads.
class HookLauncher
{
public:
    /// Bytes of an event that a command can be given.
    static constexpr std::size_t maxInput = 65536;
    /// Commands that run at once, whatever the server asks for.
    static constexpr std::size_t maxRunning = 64;

    /// \returns null when no hook is a command
    /// \throws std::system_error when the system has no process for it
    static std::unique_ptr<HookLauncher> start(const HooksConfig& config);

    /// Ends the process, and what it runs. Requires: run() has returned in every thread.
    ~HookLauncher();
    HookLauncher(const HookLauncher&) = delete;
    HookLauncher& operator=(const HookLauncher&) = delete;

    /// Runs the command of a hook, and waits for its end: at most for the configured time and a little more, or until
    /// `stop`.
    /// \param hook   index in hookTargets of one that is a command
    /// \param input  for the command's standard input; at most maxInput bytes
    HookOutcome run(std::size_t hook, const std::string& input, const HookStop& stop) const;

private:
    explicit HookLauncher(const HooksConfig& config);

    const std::chrono::seconds timeout_;
    Descriptor requests_;
    pid_t process_ = -1;
};

}  // namespace refhost
