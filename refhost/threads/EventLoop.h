#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>

namespace refhost
{

/// One thread that waits for descriptors (epoll), timers and posted work, and runs their handlers in turn.
///
/// Threads: every operation from any thread unless told otherwise; handlers run on the loop's thread, which
/// blocks every signal. An exception that leaves a handler is logged and the loop goes on.
class EventLoop
{
public:
    /// What happened to a descriptor; any combination. It is told again as long as it lasts. A peer that only
    /// ends its own sending makes the descriptor readable; hungUp means both directions, or an error.
    static constexpr std::uint32_t readable = 1;
    static constexpr std::uint32_t writable = 2;
    static constexpr std::uint32_t hungUp = 4;

    using IoHandler = std::function<void(std::uint32_t events)>;
    using Task = std::function<void()>;

    /// Starts the thread. \param name shown by the system's tools, cut to 15 characters
    /// \throws std::system_error when descriptors or the thread cannot be had
    explicit EventLoop(const std::string& name);
    /// Ends the thread; handlers that did not run yet are dropped. Not from the loop's own thread.
    ~EventLoop();
    EventLoop(const EventLoop&) = delete;
    EventLoop& operator=(const EventLoop&) = delete;

    /// Watches a descriptor. `hungUp` is always reported. The caller keeps the descriptor open until
    /// remove(). \throws std::system_error when the system refuses it, and nothing is watched
    void add(int descriptor, std::uint32_t events, IoHandler handler);
    /// Watches for other events from now on. Does nothing for a descriptor that is not watched.
    void modify(int descriptor, std::uint32_t events);
    /// Stops watching and drops the handler. Called on the loop's thread, the handler does not run any more
    /// after the return; from another thread it waits until the handler does not run. Does nothing for a
    /// descriptor that is not watched.
    void remove(int descriptor);

    /// Runs `task` on the loop's thread, in the order of posting.
    void post(Task task);

    /// Runs `task` every `interval` (at least a millisecond), first after that time, until the loop ends.
    /// Times that were missed because the loop was busy are left out.
    void every(std::chrono::milliseconds interval, Task task);

    /// Names one call of after(); never used again.
    using TimerId = std::pair<std::chrono::steady_clock::time_point, std::uint64_t>;

    /// Runs `task` once, after `delay`; at once where that is not positive.
    TimerId after(std::chrono::nanoseconds delay, Task task);
    /// Drops a task of after() that does not run yet; from another thread it may have been about to. Does
    /// nothing for one that ran.
    void cancel(const TimerId& timer);

    bool onLoopThread() const;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace refhost
