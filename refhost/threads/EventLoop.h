#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace refhost
{

/// One thread that waits for descriptors (epoll), timers and posted work, and runs their handlers in turn.
///
/// Threads: every operation from any thread unless told otherwise; handlers run on the loop's thread.
class EventLoop
{
public:
    /// What happened to a descriptor; any combination.
    static constexpr std::uint32_t readable = 1;
    static constexpr std::uint32_t writable = 2;
    static constexpr std::uint32_t hungUp = 4;

    using IoHandler = std::function<void(std::uint32_t events)>;
    using Task = std::function<void()>;

    /// Starts the thread. \param name shown by the system's tools
    explicit EventLoop(const std::string& name);
    /// Ends the thread; handlers that did not run yet are dropped. Not from the loop's own thread.
    ~EventLoop();

    /// Watches a descriptor. `hungUp` is always reported. The caller keeps the descriptor open until remove().
    void add(int descriptor, std::uint32_t events, IoHandler handler);
    void modify(int descriptor, std::uint32_t events);
    /// Stops watching. Called on the loop's thread, the handler does not run any more after the return; from
    /// another thread it waits until the handler does not run.
    void remove(int descriptor);

    /// Runs `task` on the loop's thread, in the order of posting.
    void post(Task task);

    /// Runs `task` every `milliseconds`, first after that time, until cancelled.
    /// \returns a number for cancel()
    int every(int milliseconds, Task task);
    void cancel(int timer);

    bool onLoopThread() const;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace refhost
