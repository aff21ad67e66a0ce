#pragma once
// Tested by tests/refhost/http/HttpRouter_test.cpp.

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "refhost/access/ConnectionLogin.h"
#include "refhost/base/SocketAddress.h"
#include "refhost/http/HttpTarget.h"
#include "refhost/net/http/HttpRequestHead.h"

namespace refhost
{

/// One whole request to the HTTP service, as its handler sees it. A value type.
struct HttpRequest
{
    HttpRequestHead head;
    HttpTarget target;
    std::string body;
    SocketAddress peer;
    std::uint64_t connection = 0;  ///< serial of the connection
    bool encrypted = false;        ///< others cannot read it
    std::string certificate;       ///< ByteStream::certificateName()
    bool keepAlive = false;        ///< the client keeps the connection

    /// Who is logged in on the connection; not null once it is dispatched.
    std::shared_ptr<ConnectionLogin> login;

    /// The user that sent it; empty when nobody logged in.
    std::string user;
    /// The token of the page's sign-in that says so; empty where something else does, or nobody logged in.
    std::string signIn;
    /// Whether that still holds, for replies that last. Threads: any; valid as long as the service.
    std::function<bool()> stillLoggedIn = [] { return true; };
    /// The parts of the path that the route's pattern names, by name.
    std::map<std::string, std::string, std::less<>> parts;

    /// A part of the path; empty when the route's pattern has none of that name.
    const std::string& part(std::string_view name) const
    {
        static const std::string none;
        const auto found = parts.find(name);
        return found == parts.end() ? none : found->second;
    }

    /// Set once nobody waits for the reply any more; never null in a handler.
    std::shared_ptr<const std::atomic<bool>> cancelled = std::make_shared<std::atomic<bool>>(false);
};

}  // namespace refhost
