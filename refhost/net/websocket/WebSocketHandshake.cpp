#include "refhost/net/websocket/WebSocketHandshake.h"

#include <openssl/evp.h>

#include <array>
#include <cstddef>

#include "refhost/base/Base64.h"
#include "refhost/base/IgnoreCase.h"
#include "refhost/net/http/HttpResponse.h"

namespace refhost
{
namespace
{

constexpr std::string_view version = "13";
constexpr std::size_t keySize = 16;
constexpr std::size_t keyTextSize = 24;
// RFC 6455, section 1.3.
constexpr std::string_view acceptSuffix = "258EAFA5-E914-47DA-95CA-C5AB0DC85B11";

bool isKey(std::string_view text)
{
    const auto bytes = bytesOfBase64(text);
    return text.size() == keyTextSize && bytes && bytes->size() == keySize;
}

/// The host of "host", "host:port" or "[v6]:port".
std::string_view hostOf(std::string_view authority)
{
    const std::size_t bracket = authority.find(']');
    const std::size_t from = bracket == std::string_view::npos ? 0 : bracket;
    return authority.substr(0, authority.find(':', from));
}

}  // namespace

bool WebSocketHandshake::isRequested(const HttpRequestHead& request)
{
    return request.lists("Upgrade", "websocket");
}

WebSocketHandshake::Check WebSocketHandshake::check(const HttpRequestHead& request)
{
    if (!isRequested(request) || request.method != "GET" || request.version < 11 ||
        !request.lists("Connection", "Upgrade") || !isKey(request.field("Sec-WebSocket-Key")))
    {
        return Check::noHandshake;
    }
    return request.field("Sec-WebSocket-Version") == version ? Check::good : Check::otherVersion;
}

std::string WebSocketHandshake::accept(const HttpRequestHead& request)
{
    const std::string text = std::string(request.field("Sec-WebSocket-Key")).append(acceptSuffix);
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
    std::size_t size = 0;
    EVP_Q_digest(nullptr, "SHA1", nullptr, text.data(), text.size(), digest.data(), &size);
    return base64Of(digest.data(), size);
}

std::string WebSocketHandshake::refusal(const HttpRequestHead& request)
{
    switch (check(request))
    {
        case Check::noHandshake:
            return HttpResponse::refusal("400 Bad Request", "", "This is no WebSocket handshake.");
        case Check::otherVersion:
            return HttpResponse::refusal("426 Upgrade Required",
                                         "Upgrade: websocket\r\nSec-WebSocket-Version: 13\r\n",
                                         "Only version 13 of WebSocket is spoken here.");
        case Check::good:
            break;
    }
    if (!request.lists("Sec-WebSocket-Protocol", protocol))
    {
        return HttpResponse::refusal("400 Bad Request", "",
                                     "The WebSocket sub-protocol here is rtsp.onvif.org.");
    }
    return {};
}

std::string WebSocketHandshake::response(const HttpRequestHead& request)
{
    std::string text =
        "HTTP/1.1 101 Switching Protocols\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n"
        "Sec-WebSocket-Accept: ";
    text.append(accept(request)).append("\r\nSec-WebSocket-Protocol: ");
    return text.append(protocol).append("\r\n\r\n");
}

bool WebSocketHandshake::isSameHost(const HttpRequestHead& request)
{
    if (!request.has("Origin"))
    {
        return true;
    }
    const std::string_view origin = request.field("Origin");
    const std::size_t scheme = origin.find("://");
    return scheme != std::string_view::npos && !hostOf(request.field("Host")).empty() &&
           equalsIgnoringCase(hostOf(origin.substr(scheme + 3)), hostOf(request.field("Host")));
}

}  // namespace refhost
