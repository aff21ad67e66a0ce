#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>

namespace refhost
{

/// One thread that waits for descriptors (epoll), timers and posted tasks, and runs their handlers in turn.
///
/// Threads: any, unless stated otherwise. Handlers run on the loop's thread, which blocks every signal. An
/// exception thrown by a handler is logged and the loop continues.
class EventLoop
{
public:
    /// Events of a descriptor; any combination. Level-triggered: reported again as long as the state lasts. A
    /// peer that ends only its own sending makes the descriptor readable; hungUp means that both directions
    /// ended, or an error.
    static constexpr std::uint32_t readable = 1;
    static constexpr std::uint32_t writable = 2;
    static constexpr std::uint32_t hungUp = 4;
    /// With `readable` in add(): of several loops that watch one listening socket, one that waits is woken and
    /// not all. modify() does nothing then.
    static constexpr std::uint32_t exclusive = 8;

    using IoHandler = std::function<void(std::uint32_t events)>;
    using Task = std::function<void()>;

    /// Starts the thread.
    /// \param name  of the thread, cut to 15 characters
    /// \throws std::system_error when descriptors or the thread cannot be created
    explicit EventLoop(const std::string& name);
    /// Ends the thread; handlers that did not run yet are dropped.
    /// Requires: not called on the loop's thread.
    ~EventLoop();
    EventLoop(const EventLoop&) = delete;
    EventLoop& operator=(const EventLoop&) = delete;

    /// Watches a descriptor for `events`. `hungUp` is always reported.
    /// \throws std::system_error when the system refuses it; nothing is watched then
    /// Requires: the descriptor stays open until remove().
    void add(int descriptor, std::uint32_t events, IoHandler handler);
    /// Replaces the watched events. Does nothing for a descriptor that is not watched.
    void modify(int descriptor, std::uint32_t events);
    /// Stops watching and drops the handler. Once this returns, the handler does not run; on another thread
    /// than the loop's it waits for a running handler. Does nothing for a descriptor that is not watched.
    void remove(int descriptor);

    /// Runs `task` on the loop's thread, in the order of posting.
    void post(Task task);

    /// Runs `task` at every `interval` (at least a millisecond) until the loop ends, the first time after one
    /// interval. Runs missed because the loop was busy are skipped.
    void every(std::chrono::milliseconds interval, Task task);

    /// Identifies one call of after(); never reused.
    using TimerId = std::pair<std::chrono::steady_clock::time_point, std::uint64_t>;

    /// Runs `task` once after `delay`, at once if that is not positive.
    /// \returns an id for cancel()
    TimerId after(std::chrono::nanoseconds delay, Task task);
    /// Drops a task of after() that has not started; called from another thread, the task may be starting
    /// meanwhile. Does nothing for one that has run.
    void cancel(const TimerId& timer);

    bool onLoopThread() const;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace refhost
