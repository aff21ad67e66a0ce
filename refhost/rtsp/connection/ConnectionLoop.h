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
#include "refhost/rtsp/connection/RtspConnection.h"
#include "refhost/rtsp/message/ResponseWriter.h"
#include "refhost/rtsp/message/RtspRequest.h"
#include "refhost/rtsp/session/AddressLimiter.h"
#include "refhost/rtsp/session/RtspServices.h"
#include "refhost/threads/EventLoop.h"

namespace refhost
{

/// One event loop of the server with the connections it owns, one timer for all their time-outs, and the
/// buffers that their requests are read and answered with.
/// Threads: adopt(), retryDeferred() and closeAll() any; everything else the loop's.
class ConnectionLoop
{
public:
    /// What one request needs and the next can use again.
    struct Scratch
    {
        std::vector<char> input = std::vector<char>(16384);
        RtspRequest request;
        ResponseWriter response;
        std::string output;  // what a connection gathers while it is corked
    };

    /// \param refused            gives refused connections back to this count
    /// \param sweepInterval   how often time-outs are looked at
    ConnectionLoop(const std::string& name, RtspServices& services, AddressLimiter& refused,
                   std::chrono::milliseconds sweepInterval);
    /// Connections that are left are closed.
    ~ConnectionLoop();

    /// Serves the client at the other end of `stream`, until it closes.
    /// \param stream  detached
    /// \param slot    null for one that is refused, which is counted already
    void adopt(std::shared_ptr<ByteStream> stream, std::shared_ptr<ConnectionSlots::Slot> slot);
    /// Tries every deferred request again.
    void retryDeferred();
    /// Closes every connection and waits until they are closed. Not on the loop's thread.
    void closeAll();

    EventLoop& events();
    Scratch& scratch();
    void close(RtspConnection& connection);
    void addDeferred(RtspConnection& connection);

private:
    void take(const std::shared_ptr<ByteStream>& stream, const std::shared_ptr<ConnectionSlots::Slot>& slot);
    void closeWhenDisplaced(RtspConnection& connection, ConnectionSlots::Slot& slot);
    void retryDeferredNow();
    void sweep();
    void closeAllNow();

    RtspServices& services_;
    AddressLimiter& refused_;
    Scratch scratch_;
    std::unordered_map<RtspConnection*, std::shared_ptr<RtspConnection>> connections_;
    std::unordered_set<RtspConnection*> deferred_;  // some of connections_
    std::atomic<bool> retryPosted_{false};
    EventLoop events_;  // last: its thread ends before what it works on
};

}  // namespace refhost
