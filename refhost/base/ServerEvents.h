#pragma once
// Tested by tests/refhost/base/ServerEvents_test.cpp.

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "refhost/base/Mutex.h"
#include "refhost/base/Times.h"

namespace refhost
{

/// Something that happened in the server and that other programs may want to know.
struct ServerEvent
{
    using Value = std::variant<std::string, std::int64_t, double>;
    using Field = std::pair<std::string_view, Value>;

    std::string_view name;      ///< a constant, such as "camera-state"
    WallTime time;              ///< when it happened
    std::vector<Field> fields;  ///< their names are constants; free of credentials

    /// The value of a field; null when there is none of that name.
    const Value* find(std::string_view field) const;

    /// A field's value that is a date, as `time` in json().
    static Value dateOf(WallTime time);

    /// One JSON object without line breaks: "event" and "time" (UTC, ISO 8601 with milliseconds), then the fields.
    /// Bytes that are not UTF-8 are escaped as text. \see JsonText
    std::string json() const;
};

/// Passes events of the server to those who subscribed: hooks, the HTTP service.
///
/// Publishing never waits for a subscriber: each has a queue with a bound, beyond which events are counted instead of
/// kept. Threads: any. The lock is held for no longer than it takes to append to the queues; no function is called with
/// it.
class ServerEvents
{
public:
    using EventPtr = std::shared_ptr<const ServerEvent>;

    /// A subscriber's queue. It may outlive the ServerEvents. Threads: any.
    class Subscription
    {
    public:
        struct Taken
        {
            std::vector<EventPtr> events;  ///< oldest first
            std::uint64_t lost = 0;        ///< events after these that the queue had no room for
        };

        Subscription(std::size_t maxEvents, std::function<void()> wake);
        Subscription(const Subscription&) = delete;
        Subscription& operator=(const Subscription&) = delete;

        /// Empties the queue.
        Taken take();
        /// Ends the subscription: once this returns, `wake` is not called any more. Requires: not called by `wake`.
        void close();

    private:
        friend class ServerEvents;

        void push(const EventPtr& event);

        const std::size_t maxEvents_;
        Mutex mutex_;
        std::deque<EventPtr> events_ OV_GUARDED_BY(mutex_);
        std::uint64_t lost_ OV_GUARDED_BY(mutex_) = 0;
        bool closed_ OV_GUARDED_BY(mutex_) = false;
        Mutex wakeMutex_;
        std::function<void()> wake_ OV_GUARDED_BY(wakeMutex_);
    };

    /// The events of this process.
    static ServerEvents& instance();

    ServerEvents() = default;
    ServerEvents(const ServerEvents&) = delete;
    ServerEvents& operator=(const ServerEvents&) = delete;

    /// \param maxEvents  that the queue holds
    /// \param wake       called, on the publisher's thread, when an event came into an empty queue; must not block and
    ///                   must not publish
    /// \returns the queue; events come until it is closed or its last handle is gone
    std::shared_ptr<Subscription> subscribe(std::size_t maxEvents, std::function<void()> wake);

    /// Whether anybody subscribed: what an event costs can be saved otherwise.
    bool hasSubscribers() const
    {
        return count_.load(std::memory_order_relaxed) > 0;
    }

    void publish(ServerEvent event);

private:
    Mutex mutex_;
    std::vector<std::weak_ptr<Subscription>> subscriptions_ OV_GUARDED_BY(mutex_);
    std::atomic<std::size_t> count_{0};  ///< of subscriptions_
};

}  // namespace refhost
