#include "refhost/net/tls/PlainClient.h"

#include <algorithm>
#include <string>

namespace refhost
{

std::string_view PlainClient::protocolOf(std::string_view first)
{
    const auto isText = [](char c) { return (c >= ' ' && c < 127) || c == '\r'; };
    if (first.empty() || !std::all_of(first.begin(), first.end(), isText))
    {
        return {};
    }
    for (const std::string_view method : {"GET ", "POST ", "HEAD ", "PUT ", "CONNECT "})
    {
        if (first.substr(0, method.size()) == method)
        {
            return "HTTP";
        }
    }
    return "RTSP";
}

void PlainClient::answer(ByteStream& stream, std::string_view protocol)
{
    constexpr std::string_view line = "This port needs TLS.\n";
    std::string text(protocol);
    text.append("/1.0 400 Bad Request\r\nConnection: close\r\nContent-Type: text/plain\r\nContent-Length: ");
    text.append(std::to_string(line.size())).append("\r\n\r\n").append(line);
    const std::string_view part = text;
    stream.send(&part, 1, false);
    stream.endSending();
}

}  // namespace refhost
