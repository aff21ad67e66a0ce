#pragma once
// Tested by tests/refhost/net/ConnectFailure_test.cpp.

#include <string>
#include <string_view>

namespace refhost
{

/// What a connection that cannot be made is called in the log: with host, port and cause. Threads: any; no state.
class ConnectFailure
{
public:
    /// "192.0.2.7:554", "[2001:db8::7]:554", "yard.example:554".
    static std::string peer(std::string_view host, int port);

    /// \param problem  of connect(), an errno
    static std::string text(std::string_view host, int port, int problem);
    /// For other causes. \param why  one line
    static std::string text(std::string_view host, int port, std::string_view why);
};

}  // namespace refhost
