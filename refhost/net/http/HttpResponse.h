#pragma once
// Tested by tests/refhost/rtsp/connection/HttpEntrance_test.cpp.

#include <string>
#include <string_view>

namespace refhost
{

/// Texts of HTTP responses. Threads: any; no state.
class HttpResponse
{
public:
    /// A whole response that ends the connection.
    /// \param status   code and reason, as "404 Not Found"
    /// \param fields   further header lines, each with its line end
    /// \param message  the body, one line of plain text
    /// \param head     without the body, as the answer to HEAD
    static std::string refusal(std::string_view status, std::string_view fields, std::string_view message,
                               bool head = false);
};

}  // namespace refhost
