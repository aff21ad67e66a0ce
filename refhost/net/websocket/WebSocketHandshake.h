#pragma once
// Tested by tests/refhost/net/websocket/WebSocketHandshake_test.cpp.

#include <string>
#include <string_view>

#include "refhost/net/http/HttpRequestHead.h"

namespace refhost
{

/// The server's side of the handshake of WebSocket (RFC 6455, section 4.2).
class WebSocketHandshake
{
public:
    /// Of RTSP (ONVIF Streaming, "RTSP over WebSocket").
    static constexpr std::string_view protocol = "rtsp.onvif.org";

    enum class Check
    {
        good,
        noHandshake,
        otherVersion  ///< of the protocol: the response names version 13
    };

    /// Whether the request asks for WebSocket at all.
    static bool isRequested(const HttpRequestHead& request);

    /// Whether the request can be fulfilled, whatever its sub-protocols.
    static Check check(const HttpRequestHead& request);

    /// The value of `Sec-WebSocket-Accept` in the response. Requires: check() is good.
    static std::string accept(const HttpRequestHead& request);

    /// For RTSP.
    /// \returns why the request cannot be fulfilled, as an HTTP response; empty when it can
    static std::string refusal(const HttpRequestHead& request);

    /// The response that switches to WebSocket for RTSP. Requires: refusal() is empty.
    static std::string response(const HttpRequestHead& request);

    /// Whether the page that makes the request, if any does, comes from the host that it was sent to, whatever
    /// the port.
    static bool isSameHost(const HttpRequestHead& request);
};

}  // namespace refhost
