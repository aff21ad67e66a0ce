#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>

namespace refhost
{

/// Writes lines to a descriptor on a thread of its own, so that a reader that stalls (a terminal stopped with
/// Ctrl-S, a pipe that nobody empties) never holds up who writes them.
///
/// Lines wait in a queue of at most `maxLines` lines and `maxBytes` bytes. What comes beyond is dropped and
/// counted; as soon as the output takes lines again, one line reports how many were lost. Threads: any, for
/// every operation.
class LogWriter
{
public:
    static constexpr std::size_t maxLines = 4096;
    static constexpr std::size_t maxBytes = std::size_t{1} << 20;

    /// \param descriptor  not owned; must stay open until this object is gone
    /// \param lost        makes the line, with its newline, that reports how many lines were lost
    /// \throws std::system_error  when the thread cannot be started
    LogWriter(int descriptor, std::function<std::string(std::size_t count)> lost);
    /// Waits as flush() does, at most a second in all. A thread that the system holds up longer is left to
    /// itself.
    ~LogWriter();
    LogWriter(const LogWriter&) = delete;
    LogWriter& operator=(const LogWriter&) = delete;

    /// Queues `line`, which holds its newline. Never waits for the output.
    void write(std::string line);

    /// Waits until all that was queued before is written, at most `deadline`.
    /// \returns false when it was not written in time
    bool flush(std::chrono::milliseconds deadline);

private:
    struct State;

    static void run(const std::shared_ptr<State>& state);

    std::shared_ptr<State> state_;  ///< shared with the thread, which may outlive this object
};

}  // namespace refhost
