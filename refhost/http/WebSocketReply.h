#pragma once
// Tested by tests/refhost/http/LiveRoute_test.cpp.

#include <functional>
#include <memory>
#include <optional>

#include "refhost/http/HttpReply.h"
#include "refhost/net/http/HttpRequestHead.h"

namespace refhost
{

/// The reply to a request for a WebSocket.
class WebSocketReply
{
public:
    /// Refuses what is no handshake, another version of the protocol, and a page of another site, to which the browser would
    /// show what is sent to its user.
    /// \returns nothing for a request that can be fulfilled
    static std::optional<HttpReply> refusal(const HttpRequestHead& head);

    /// Switches to WebSocket, or refuses.
    /// \param make  makes the connection's end, unless it is refused
    static HttpReply to(const HttpRequestHead& head,
                        const std::function<std::shared_ptr<BodySource>()>& make);
};

}  // namespace refhost
