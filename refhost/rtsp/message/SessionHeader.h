#pragma once
// Tested by tests/refhost/rtsp/message/ResponseWriter_test.cpp.

#include <chrono>
#include <string>
#include <string_view>

namespace refhost
{

/// The Session header (RFC 2326, section 12.37).
class SessionHeader
{
public:
    /// The session id of a request's header, without parameters.
    static std::string_view id(std::string_view value);

    /// Appends "<id>;timeout=<seconds>".
    static void append(std::string& out, std::string_view id, std::chrono::seconds timeout);
};

}  // namespace refhost
