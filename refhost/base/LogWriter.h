#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>

namespace refhost
{

/// Writes lines to a descriptor on a thread of its own, so that a stalled reader (a terminal stopped with
/// Ctrl-S, a full pipe) never blocks the callers.
///
/// At most `maxLines` lines and `maxBytes` bytes are queued. Further lines are dropped and counted; when the
/// output accepts lines again, one line reports how many were lost. Threads: any, for every operation.
class LogWriter
{
public:
    static constexpr std::size_t maxLines = 4096;
    static constexpr std::size_t maxBytes = std::size_t{1} << 20;

    /// \param descriptor  not owned; stays open until this object is destroyed
    /// \param lost        returns the line, with its newline, that reports `count` lost lines
    /// \throws std::system_error  when the thread cannot be started
    LogWriter(int descriptor, std::function<std::string(std::size_t count)> lost);
    /// Flushes for at most one second. A thread that is blocked longer is detached.
    ~LogWriter();
    LogWriter(const LogWriter&) = delete;
    LogWriter& operator=(const LogWriter&) = delete;

    /// Queues `line`, which includes its newline. Never waits for the output.
    void write(std::string line);

    /// Waits until the lines queued so far are written, at most for `deadline`.
    /// \returns false when they were not written in time
    bool flush(std::chrono::milliseconds deadline);

private:
    struct State;

    static void run(const std::shared_ptr<State>& state);

    std::shared_ptr<State> state_;  ///< shared with the thread, which may outlive this object
};

}  // namespace refhost
