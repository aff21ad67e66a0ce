#pragma once
// Tested by tests/refhost/http/AccountRoutes_test.cpp.

#include <string>
#include <string_view>

#include "refhost/net/http/HttpRequestHead.h"

namespace refhost
{

/// The cookie of a sign-in (RFC 6265). Scripts do not see it, and a browser sends it with requests of this server's own pages
/// alone. Over TLS its name keeps others from setting it.
class SignInCookie
{
public:
    /// The token; empty where there is none, or several.
    static std::string read(const HttpRequestHead& head, bool encrypted);

    /// Value of the Set-Cookie header that sets it.
    /// \param token  empty: removes it
    static std::string text(std::string_view token, bool encrypted);
};

}  // namespace refhost
