#pragma once
// Tested by tests/refhost/rtsp/connection/HttpEntrance_test.cpp.

#include <memory>
#include <string>
#include <string_view>

#include "refhost/base/Replaceable.h"
#include "refhost/base/Times.h"
#include "refhost/config/Config.h"
#include "refhost/net/ByteStream.h"
#include "refhost/net/http/HttpRequestHead.h"
#include "refhost/net/tunnel/TunnelTable.h"
#include "refhost/rtsp/connection/ConnectionSlots.h"

namespace refhost
{

/// What becomes of connections that start with an HTTP request: half of a tunnel, WebSocket, or a refusal. A
/// tunnel's two connections count both; they are established, and displaced, together.
///
/// Threads: any.
class HttpEntrance
{
public:
    struct Arrival
    {
        std::string_view head;                        ///< of the request, whole
        std::string rest;                             ///< what was received behind it
        std::shared_ptr<ByteStream> stream;           ///< detached
        std::shared_ptr<ConnectionSlots::Slot> slot;  ///< null: refused for want of one
    };

    struct Outcome
    {
        /// The response to send before the connection is closed; empty: the stream is taken.
        std::string refusal;
        /// The stream of an RTSP connection, which gets the slot; null: it is part of another one.
        std::shared_ptr<ByteStream> stream;
    };

    explicit HttpEntrance(const ServerConfig& config);

    /// Judges what arrives from now on by another configuration.
    void setConfig(const ServerConfig& config);

    Outcome enter(const Arrival& arrival, MonotonicTime now);

    /// Ends what waited too long for its other half.
    void endExpired(MonotonicTime now);
    /// Ends all that waits.
    void clear();

private:
    Outcome openTunnel(const Arrival& arrival, const HttpRequestHead& request);
    Outcome addPost(const Arrival& arrival, const HttpRequestHead& request, MonotonicTime now);
    Outcome openWebSocket(const Arrival& arrival, const HttpRequestHead& request) const;

    struct Rules
    {
        explicit Rules(const ServerConfig& config);

        bool http;
        bool webSocket;
        bool anyOrigin;
    };

    Replaceable<Rules> rules_;
    const std::shared_ptr<TunnelTable> tunnels_;
};

}  // namespace refhost
