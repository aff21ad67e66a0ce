#include "refhost/rtsp/connection/HttpEntrance.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include "refhost/base/Log.h"
#include "refhost/net/http/HttpResponse.h"
#include "refhost/net/tunnel/TunnelHeaders.h"
#include "refhost/net/websocket/WebSocketHandshake.h"
#include "refhost/net/websocket/WebSocketStream.h"

namespace refhost
{
namespace
{

constexpr std::size_t maxCookie = 256;

HttpEntrance::Outcome refuse(std::string_view status, std::string_view message, std::string_view fields = {},
                             bool head = false)
{
    return {HttpResponse::refusal(status, fields, message, head), nullptr};
}

/// Whether nobody may do anything without a login.
bool allLogIn(const ServerConfig& config)
{
    return !config.users.empty() && std::none_of(config.users.begin(), config.users.end(),
                                                 [](const UserConfig& user) { return user.isAnonymous(); });
}

bool isCookie(std::string_view text)
{
    return !text.empty() && text.size() <= maxCookie &&
           std::all_of(text.begin(), text.end(), [](char c) { return c > ' ' && c < 127; });
}

}  // namespace

HttpEntrance::Rules::Rules(const ServerConfig& config)
    : http(config.tunnel.http),
      webSocket(config.tunnel.webSocket),
      anyOrigin(config.tunnel.origins == "any" || (config.tunnel.origins == "auto" && allLogIn(config)))
{
}

HttpEntrance::HttpEntrance(const ServerConfig& config)
    : rules_(Rules(config)),
      tunnels_(std::make_shared<TunnelTable>(
          TunnelTable::Limits{64, 8, std::chrono::seconds(config.limits.handshakeTimeout)}))
{
}

void HttpEntrance::setConfig(const ServerConfig& config)
{
    rules_.replace(Rules(config));
    tunnels_->setWait(std::chrono::seconds(config.limits.handshakeTimeout));
}

HttpEntrance::Outcome HttpEntrance::enter(const Arrival& arrival, MonotonicTime now)
{
    if (arrival.slot == nullptr)
    {
        return refuse("503 Service Unavailable", "There are too many connections.");
    }
    const auto request = HttpRequestHead::parse(arrival.head);
    if (!request)
    {
        return refuse("400 Bad Request", "This is no HTTP request.");
    }
    const bool get = request->method == "GET";
    const bool post = request->method == "POST";
    if (get && WebSocketHandshake::isRequested(*request))
    {
        return openWebSocket(arrival, *request);
    }
    if ((get || post) && request->has(TunnelHeaders::cookie))
    {
        if (!rules_.get()->http)
        {
            return refuse("403 Forbidden", "RTSP through HTTP is switched off here.");
        }
        if (!isCookie(request->field(TunnelHeaders::cookie)))
        {
            return refuse("400 Bad Request", "The x-sessioncookie must have 1 to 256 characters.");
        }
        return get ? openTunnel(arrival, *request) : addPost(arrival, *request, now);
    }
    const bool head = request->method == "HEAD";
    if (get || head)
    {
        return refuse("404 Not Found", "This is an RTSP server: open rtsp:// with a player.", "", head);
    }
    return refuse("405 Method Not Allowed", "This is an RTSP server: open rtsp:// with a player.",
                  "Allow: GET, HEAD, POST\r\n");
}

HttpEntrance::Outcome HttpEntrance::openTunnel(const Arrival& arrival, const HttpRequestHead& request)
{
    const TunnelTable::Key key(*arrival.stream, std::string(request.field(TunnelHeaders::cookie)));
    const std::weak_ptr<ConnectionSlots::Slot> slot = arrival.slot;
    auto joined = [slot](const std::shared_ptr<void>& hold)
    {
        if (const auto own = slot.lock())
        {
            own->join(std::static_pointer_cast<ConnectionSlots::Slot>(hold));
        }
    };
    std::shared_ptr<ByteStream> tunnel = tunnels_->open(key, arrival.stream, std::move(joined));
    if (tunnel == nullptr)
    {
        Log::limited(Log::Level::info, "tunnels refused", "{}: tunnel refused: its cookie is in use",
                     arrival.stream->peer().text());
        return refuse("409 Conflict", "This x-sessioncookie is in use.");
    }
    return {"", std::move(tunnel)};
}

HttpEntrance::Outcome HttpEntrance::addPost(const Arrival& arrival, const HttpRequestHead& request,
                                            MonotonicTime now)
{
    if (request.chunked)
    {
        return refuse("411 Length Required", "A tunnel's POST cannot come in chunks.");
    }
    const TunnelTable::Key key(*arrival.stream, std::string(request.field(TunnelHeaders::cookie)));
    // Until it joins a GET it is displaced alone.
    arrival.slot->onDisplaced(
        [tunnels = std::weak_ptr<TunnelTable>(tunnels_), stream = std::weak_ptr<ByteStream>(arrival.stream)]
        {
            const auto table = tunnels.lock();
            const auto displaced = stream.lock();
            if (table != nullptr && displaced != nullptr)
            {
                table->drop(*displaced);
            }
        });
    TunnelStream::Post post{arrival.stream, request.contentLength, arrival.rest, arrival.slot};
    if (!tunnels_->add(key, post, now))
    {
        Log::limited(Log::Level::info, "tunnels refused", "{}: tunnel refused: too many POST requests wait",
                     arrival.stream->peer().text());
        return refuse("503 Service Unavailable", "Too many POST requests wait.");
    }
    return {};
}

HttpEntrance::Outcome HttpEntrance::openWebSocket(const Arrival& arrival,
                                                  const HttpRequestHead& request) const
{
    if (!rules_.get()->webSocket)
    {
        return refuse("403 Forbidden", "WebSocket is switched off here.");
    }
    if (!rules_.get()->anyOrigin && !WebSocketHandshake::isSameHost(request))
    {
        Log::limited(Log::Level::info, "WebSocket pages refused", "{}: WebSocket refused to a page of {}",
                     arrival.stream->peer().text(), Log::safe(request.field("Origin")));
        return refuse("403 Forbidden", "Pages of other hosts may not use WebSocket here.");
    }
    std::string refusal = WebSocketHandshake::refusal(request);
    if (!refusal.empty())
    {
        return {std::move(refusal), nullptr};
    }
    return {"", std::make_shared<WebSocketStream>(arrival.stream, WebSocketHandshake::response(request),
                                                  arrival.rest)};
}

void HttpEntrance::endExpired(MonotonicTime now)
{
    tunnels_->endExpired(now);
}

void HttpEntrance::clear()
{
    tunnels_->clear();
}

}  // namespace refhost
