#pragma once
// Tested by tests/refhost/ingest/client/RtspClientEnds_test.cpp, tests/refhost/ingest/client/RtspClientStop_test.cpp.

#include <array>
#include <cstddef>
#include <functional>
#include <memory>

#include "refhost/base/Times.h"
#include "refhost/threads/EventLoop.h"

namespace refhost
{

/// The deadlines of one RTSP client, on one timer of its loop. Moving one to a later time costs a comparison,
/// so that it may follow every packet.
///
/// Threads: the loop's.
class ClientDeadlines
{
public:
    enum class Deadline : std::size_t
    {
        open,       ///< of everything before media
        answer,     ///< of the request that is waited for
        body,       ///< of a body without length
        keepAlive,  ///< when to say that the session is in use
        media       ///< of the next packet
    };

    /// \param onDue  called when a deadline may be over, or a little before; never from within set()
    ClientDeadlines(EventLoop& loop, std::function<void()> onDue);
    /// Cancels.
    ~ClientDeadlines();
    ClientDeadlines(const ClientDeadlines&) = delete;
    ClientDeadlines& operator=(const ClientDeadlines&) = delete;

    /// Who owns this object: without it nothing is called. Until then, no deadline is noticed.
    void setOwner(std::weak_ptr<void> owner);
    /// Keeps the owner alive until the next deadline that is set from now on, or cancel().
    void keepOwner();

    /// \param due  the end of time: none
    void set(Deadline which, MonotonicTime due);
    void clear(Deadline which)
    {
        set(which, MonotonicTime::max());
    }
    void clearAll();
    bool isOver(Deadline which, MonotonicTime now) const
    {
        return now >= at(which);
    }
    MonotonicTime at(Deadline which) const
    {
        return due_[static_cast<std::size_t>(which)];
    }

    /// Calls nothing any more.
    void cancel();

private:
    static constexpr std::size_t count = 5;

    void arm();
    void onTimer();

    EventLoop& loop_;
    const std::function<void()> onDue_;
    std::weak_ptr<void> owner_;
    bool keepsOwner_ = false;
    std::array<MonotonicTime, count> due_;
    EventLoop::TimerId timer_;
    MonotonicTime timerDue_ = MonotonicTime::max();
};

}  // namespace refhost
