#pragma once
// Tested by tests/refhost/rtsp/connection/RtspServer_test.cpp.

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "refhost/rtsp/connection/ConnectionSlots.h"
#include "refhost/rtsp/connection/HttpEntrance.h"
#include "refhost/rtsp/connection/RtspConnection.h"
#include "refhost/rtsp/message/RequestReader.h"
#include "refhost/rtsp/message/ResponseWriter.h"
#include "refhost/rtsp/message/RtspRequest.h"
#include "refhost/rtsp/session/AddressLimiter.h"
#include "refhost/rtsp/session/RtspServices.h"
#include "refhost/threads/EventLoop.h"

namespace refhost
{

/// One event loop of the server with its connections, one timer for all their timeouts, and the buffers for
/// requests and responses. Threads: adopt(), connections(), retryDeferred(), endUnlessUsed() and closeAll() any; everything else the loop's.
class ConnectionLoop
{
public:
    /// Buffers of one request, reused by the next.
    struct Scratch
    {
        std::vector<char> input = std::vector<char>(16384);
        RtspRequest request;
        ResponseWriter response;
        std::string output;                     // output of a corked connection
        std::unique_ptr<RequestReader> reader;  // of the next connection that receives; null: it makes one
    };

    /// \param refused            the count of refused connections, decremented when one ends
    /// \param sweepInterval   interval of the timeout checks
    /// \param http            where connections go that start with HTTP; null: they are refused as RTSP.
    ///                        Outlives the loop
    ConnectionLoop(const std::string& name, RtspServices& services, AddressLimiter& refused,
                   std::chrono::milliseconds sweepInterval, HttpEntrance* http = nullptr);
    /// Closes the remaining connections.
    ~ConnectionLoop();

    /// Serves the client of `stream` until it closes.
    /// \param stream  detached
    /// \param slot    null for a refused connection, which is counted already
    void adopt(std::shared_ptr<ByteStream> stream, std::shared_ptr<ConnectionSlots::Slot> slot);
    /// Number of connections, those adopted and not taken yet included.
    std::size_t connections() const
    {
        return count_.load(std::memory_order_relaxed);
    }

    /// Retries every deferred request.
    void retryDeferred();

    /// Ends the connection with this serial, if it is one of the loop's, unless a session uses it.
    void endUnlessUsed(std::uint64_t serial);
    /// Closes every connection and waits for that. Not on the loop's thread.
    void closeAll();

    EventLoop& events();
    Scratch& scratch();
    HttpEntrance* http() const;
    void close(RtspConnection& connection);
    /// Forgets a closed connection, and serves the client of `stream` with its slot.
    /// \param stream  detached; null: only forgets
    void replace(RtspConnection& connection, const std::shared_ptr<ByteStream>& stream,
                 const std::shared_ptr<ConnectionSlots::Slot>& slot);
    void addDeferred(RtspConnection& connection);

private:
    void take(const std::shared_ptr<ByteStream>& stream, const std::shared_ptr<ConnectionSlots::Slot>& slot);
    void closeWhenDisplaced(RtspConnection& connection, ConnectionSlots::Slot& slot);
    std::shared_ptr<RtspConnection> find(std::uint64_t serial) const;
    void closeDisplaced(std::uint64_t serial);
    void retryDeferredNow();
    void sweep();
    void closeAllNow();

    RtspServices& services_;
    AddressLimiter& refused_;
    HttpEntrance* const http_;
    Scratch scratch_;
    std::unordered_map<RtspConnection*, std::shared_ptr<RtspConnection>> connections_;
    std::unordered_set<RtspConnection*> deferred_;  // a subset of connections_
    std::atomic<std::size_t> count_{0};
    std::atomic<bool> retryPosted_{false};
    EventLoop events_;  // last: its thread ends before the members it uses are destroyed
};

}  // namespace refhost
