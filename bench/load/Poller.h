#pragma once

#include <cstdint>

namespace rtspload
{

/// Is called when a descriptor is readable. May be called once more after the descriptor was closed in the same
/// iteration, so a read may find nothing.
class PollTarget
{
public:
    virtual ~PollTarget() = default;
    virtual void onReadable() = 0;
};

/// A thin wrapper of epoll(7). Threads: one.
class Poller
{
public:
    Poller();
    ~Poller();
    Poller(const Poller&) = delete;
    Poller& operator=(const Poller&) = delete;

    /// `target` must outlive the descriptor. Closing the descriptor ends the watch.
    void add(int descriptor, PollTarget& target);

    /// Waits up to `milliseconds` for readable descriptors and calls their targets.
    void wait(int milliseconds);

private:
    int epoll_;
};

/// Monotonic clock, nanoseconds.
std::int64_t nowNs();

}  // namespace rtspload
