#include "refhost/rtsp/connection/ConnectionLoop.h"

#include <algorithm>
#include <exception>
#include <future>
#include <utility>

#include "refhost/base/Log.h"

namespace refhost
{

ConnectionLoop::ConnectionLoop(const std::string& name, RtspServices& services, AddressLimiter& refused,
                               std::chrono::milliseconds sweepInterval, HttpEntrance* http)
    : services_(services), refused_(refused), http_(http), events_(name)
{
    events_.every(sweepInterval, [this] { sweep(); });
}

ConnectionLoop::~ConnectionLoop()
{
    closeAll();
}

void ConnectionLoop::adopt(std::shared_ptr<ByteStream> stream, std::shared_ptr<ConnectionSlots::Slot> slot)
{
    count_.fetch_add(1, std::memory_order_relaxed);
    if (events_.onLoopThread())
    {
        take(stream, slot);
        return;
    }
    events_.post([this, stream = std::move(stream), slot = std::move(slot)] { take(stream, slot); });
}

void ConnectionLoop::take(const std::shared_ptr<ByteStream>& stream,
                          const std::shared_ptr<ConnectionSlots::Slot>& slot)
{
    std::shared_ptr<RtspConnection> connection;
    try
    {
        connection = std::make_shared<RtspConnection>(*this, services_, stream, slot);
    }
    catch (const std::exception& error)
    {
        Log::error("{}: no connection: {}", stream->peer().text(), error.what());
        count_.fetch_sub(1, std::memory_order_relaxed);
        stream->close();
        if (slot == nullptr)
        {
            refused_.giveBack(stream->peer().key());
        }
        return;
    }
    connections_.emplace(connection.get(), connection);
    try
    {
        if (slot != nullptr)
        {
            closeWhenDisplaced(*connection, *slot);
        }
        connection->open();
    }
    catch (const std::exception& error)
    {
        Log::error("{}: no connection: {}", stream->peer().text(), error.what());
        close(*connection);
    }
}

void ConnectionLoop::closeWhenDisplaced(RtspConnection& connection, ConnectionSlots::Slot& slot)
{
    // So few values that the function needs no memory of its own.
    slot.onDisplaced([this, serial = connection.serial()]
                     { events_.post([this, serial] { closeDisplaced(serial); }); });
}

void ConnectionLoop::closeDisplaced(std::uint64_t serial)
{
    if (const auto displaced = find(serial))
    {
        Log::debug("{}: ended a connection to make room", displaced->peer().text());
        close(*displaced);
    }
}

/// Rare enough to look at all connections.
std::shared_ptr<RtspConnection> ConnectionLoop::find(std::uint64_t serial) const
{
    const auto found = std::find_if(connections_.begin(), connections_.end(),
                                    [serial](const auto& entry) { return entry.first->serial() == serial; });
    return found == connections_.end() ? nullptr : found->second;
}

void ConnectionLoop::endUnlessUsed(std::uint64_t serial)
{
    events_.post(
        [this, serial]
        {
            if (const auto connection = find(serial))
            {
                connection->endUnlessUsed();
            }
        });
}

void ConnectionLoop::retryDeferred()
{
    // One task is enough for all changes before it runs.
    if (!retryPosted_.exchange(true))
    {
        events_.post([this] { retryDeferredNow(); });
    }
}

void ConnectionLoop::retryDeferredNow()
{
    retryPosted_ = false;
    // A request that is still not ready defers its connection again.
    for (RtspConnection* const deferred : std::exchange(deferred_, {}))
    {
        const auto found = connections_.find(deferred);
        if (found != connections_.end())
        {
            const std::shared_ptr<RtspConnection> held = found->second;
            held->retryDeferred();
        }
    }
}

void ConnectionLoop::closeAll()
{
    std::promise<void> done;
    events_.post(
        [this, &done]
        {
            closeAllNow();
            done.set_value();
        });
    done.get_future().wait();
}

void ConnectionLoop::closeAllNow()
{
    while (!connections_.empty())
    {
        close(*connections_.begin()->first);
    }
    deferred_.clear();
}

EventLoop& ConnectionLoop::events()
{
    return events_;
}

ConnectionLoop::Scratch& ConnectionLoop::scratch()
{
    return scratch_;
}

void ConnectionLoop::close(RtspConnection& connection)
{
    const auto found = connections_.find(&connection);
    if (found == connections_.end())
    {
        return;
    }
    const std::shared_ptr<RtspConnection> held = std::move(found->second);
    connections_.erase(found);
    count_.fetch_sub(1, std::memory_order_relaxed);
    deferred_.erase(&connection);
    held->close();
    if (held->refused())
    {
        refused_.giveBack(held->peer().key());
    }
}

void ConnectionLoop::replace(RtspConnection& connection, const std::shared_ptr<ByteStream>& stream,
                             const std::shared_ptr<ConnectionSlots::Slot>& slot)
{
    close(connection);
    if (stream != nullptr)
    {
        adopt(stream, slot);
    }
}

HttpEntrance* ConnectionLoop::http() const
{
    return http_;
}

void ConnectionLoop::addDeferred(RtspConnection& connection)
{
    deferred_.insert(&connection);
}

void ConnectionLoop::sweep()
{
    std::vector<std::shared_ptr<RtspConnection>> all;
    all.reserve(connections_.size());
    for (const auto& [key, connection] : connections_)
    {
        all.push_back(connection);
    }
    const MonotonicTime now = services_.now();
    for (const auto& connection : all)
    {
        connection->sweep(now);
    }
}

}  // namespace refhost
