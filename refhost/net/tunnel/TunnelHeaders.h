#pragma once
// Tested by tests/refhost/net/tunnel/TunnelStream_test.cpp.

#include <string_view>

namespace refhost
{

/// What players and servers call the parts of a tunnel through HTTP.
struct TunnelHeaders
{
    /// The field that names the tunnel in both requests.
    static constexpr std::string_view cookie = "x-sessioncookie";
    /// The answer to the GET, which all of the server's bytes follow.
    static constexpr std::string_view greeting =
        "HTTP/1.0 200 OK\r\n"
        "Connection: close\r\n"
        "Cache-Control: no-store\r\n"
        "Pragma: no-cache\r\n"
        "Content-Type: application/x-rtsp-tunnelled\r\n\r\n";
    /// The answer to a POST that is complete.
    static constexpr std::string_view taken = "HTTP/1.0 200 OK\r\nContent-Length: 0\r\n\r\n";
};

}  // namespace refhost
