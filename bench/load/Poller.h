#pragma once

#include <cstdint>

namespace rtspload
{

/// Is told when a descriptor can be read. May be told once more after the descriptor was closed in the same
/// round, so it must bear a read that finds nothing.
class PollTarget
{
public:
    virtual ~PollTarget() = default;
    virtual void onReadable() = 0;
};

/// A thin cover of epoll(7). Threads: one.
class Poller
{
public:
    Poller();
    ~Poller();
    Poller(const Poller&) = delete;
    Poller& operator=(const Poller&) = delete;

    /// `target` must outlive the descriptor. Closing the descriptor ends the watch.
    void add(int descriptor, PollTarget& target);

    /// Waits up to `milliseconds` for descriptors and tells their targets.
    void wait(int milliseconds);

private:
    int epoll_;
};

/// Monotonic clock, nanoseconds.
std::int64_t nowNs();

}  // namespace rtspload
