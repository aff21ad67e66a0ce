#pragma once

#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "refhost/http/HttpAccess.h"
#include "refhost/http/HttpReply.h"
#include "refhost/http/HttpRequest.h"

namespace refhost
{

/// Finds the handler of a request by its method and path. Threads: constant once the service runs.
class HttpRouter
{
public:
    using Handler = std::function<HttpReply(const HttpRequest& request)>;
    /// Takes the reply to a request, once. Threads: any.
    using Respond = std::function<void(HttpReply reply)>;
    using LaterHandler = std::function<void(const HttpRequest& request, Respond respond)>;

    struct Route
    {
        std::string method;  ///< "GET", which serves HEAD too, "POST", "PUT" or "DELETE"
        std::string
            pattern;  ///< "/api/v1/sessions/{id}": a segment in braces is any one, and a part of the request
        HttpAccess access;
        /// Called once for each permitted request; what it throws is logged and answered with 500.
        Handler handler;
        /// Whether the handler may block for a short time: it runs on a thread of the background pool, and is refused
        /// with 503 when that has too much to do. Otherwise it runs on the service's loop and must not wait.
        bool background = false;
        /// Where it is set, it is called instead of `handler`, on the service's loop: its reply may come later. What
        /// waits for it must have a bound, and a deadline below HttpConnection::maxHandling.
        LaterHandler later{};
    };

    struct Match
    {
        const Route* route = nullptr;  ///< null: no such path, or not that method
        std::map<std::string, std::string, std::less<>> parts;
        std::string allowed;  ///< the path's methods for an Allow header; empty: there is no such path
    };

    /// Requires: no other route has the method and pattern.
    void add(Route route);

    Match find(std::string_view method, const std::vector<std::string>& segments) const;

    /// All of them in the order of add().
    const std::vector<Route>& routes() const;

private:
    std::vector<Route> routes_;
};

}  // namespace refhost
