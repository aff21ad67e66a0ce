#pragma once
// Tested by tests/refhost/net/ByteStreamContract_test.cpp.

#include <functional>
#include <memory>
#include <utility>

#include "refhost/net/ByteStream.h"

namespace refhost
{

/// The handler of a stream over another one, while it is attached to a loop; also reports there what no event of the
/// carrier will.
///
/// Threads: one at a time; the stream's lock guards it.
class StreamHandler
{
public:
    using Handler = ByteStream::Handler;

    void attach(EventLoop& loop, std::shared_ptr<Handler> handler)
    {
        loop_ = &loop;
        handler_ = std::move(handler);
    }

    /// What was posted is not called any more.
    /// \returns the handler, to be destroyed without the stream's lock
    std::shared_ptr<Handler> detach()
    {
        loop_ = nullptr;
        posted_ = false;
        return std::exchange(handler_, nullptr);
    }

    /// Null while detached.
    EventLoop* loop() const
    {
        return loop_;
    }
    /// Null while detached.
    const std::shared_ptr<Handler>& handler() const
    {
        return handler_;
    }

    /// Calls `report` with the handler on the loop's thread, without the stream's lock. Does nothing while detached, and
    /// after an earlier call until takePosted().
    void post(std::function<void(const Handler& handler)> report)
    {
        if (loop_ == nullptr || std::exchange(posted_, true))
        {
            return;
        }
        // The handler is alive while the stream is attached, and so is the stream.
        loop_->post(
            [report = std::move(report), weak = std::weak_ptr<Handler>(handler_)]
            {
                if (const auto handler = weak.lock())
                {
                    report(*handler);
                }
            });
    }

    /// The report is being made: the next post() makes another one.
    void takePosted()
    {
        posted_ = false;
    }

private:
    EventLoop* loop_ = nullptr;
    std::shared_ptr<Handler> handler_;
    bool posted_ = false;
};

}  // namespace refhost
