#include "refhost/http/WebSocketReply.h"

#include <utility>

#include "refhost/net/websocket/WebSocketHandshake.h"

namespace refhost
{
namespace
{

constexpr int badRequest = 400;
constexpr int forbidden = 403;
constexpr int upgradeRequired = 426;

}  // namespace

std::optional<HttpReply> WebSocketReply::refusal(const HttpRequestHead& head)
{
    switch (WebSocketHandshake::check(head))
    {
        case WebSocketHandshake::Check::noHandshake:
        {
            HttpReply reply = HttpReply::problem(upgradeRequired, "This is sent through a WebSocket.");
            reply.with("Upgrade", "websocket").with("Sec-WebSocket-Version", "13");
            return reply;
        }
        case WebSocketHandshake::Check::otherVersion:
        {
            HttpReply reply = HttpReply::problem(badRequest, "Only version 13 of WebSocket is spoken here.");
            reply.with("Sec-WebSocket-Version", "13");
            return reply;
        }
        case WebSocketHandshake::Check::good:
            break;
    }
    if (!WebSocketHandshake::isSameHost(head))
    {
        return HttpReply::problem(forbidden, "A page of another site may not use this.");
    }
    return std::nullopt;
}

HttpReply WebSocketReply::to(const HttpRequestHead& head,
                             const std::function<std::shared_ptr<BodySource>()>& make)
{
    if (auto refused = refusal(head))
    {
        return std::move(*refused);
    }
    return HttpReply::webSocket(WebSocketHandshake::accept(head), make());
}

}  // namespace refhost
