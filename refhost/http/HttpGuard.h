#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "refhost/access/ConnectionLogin.h"
#include "refhost/access/UserAccess.h"
#include "refhost/config/Config.h"
#include "refhost/http/HttpAccess.h"
#include "refhost/http/HttpReply.h"
#include "refhost/http/HttpRequest.h"

namespace refhost
{

/// Decides who may send which request to the HTTP service.
///
/// Everything needs a Host header that names this server, so that no web page reaches the service through a name of its
/// own (DNS rebinding). What changes something must not be sent by a page of another site, and without configured users
/// it must come from this machine.
///
/// A user logs in by credentials or a certificate, or is signed in on the page: then the browser sends a cookie, which counts
/// only where no page of another site or port sends the request, and what changes something needs a header that only scripts
/// of the page add.
///
/// Threads: any.
class HttpGuard
{
public:
    /// \param users  outlives the guard
    HttpGuard(const ServerConfig& config, UserAccess& users);

    /// Checks what does not depend on the route.
    /// \returns the refusal; nothing when the request is permitted
    std::optional<HttpReply> refuseOrigin(const HttpRequest& request) const;

    struct Finding
    {
        /// Nothing when the request is permitted.
        std::optional<HttpReply> refusal;
        /// Check the same request again after this span, on the same connection and before any other.
        std::optional<Duration> again{};
    };

    /// Checks who the user is, and the rights.
    /// \param request  with its parts; `user` is set when it is permitted
    /// \param login    of its connection
    Finding checkUser(HttpRequest& request, ConnectionLogin& login, const HttpAccess& access) const;

    /// Whether a Host header names this server.
    /// \param host  its value, with or without a port
    bool isOwnName(std::string_view host) const;

    /// Whether a request with Basic credentials is permitted where it comes from, and users are configured.
    bool takesPasswords(const HttpRequest& request) const;

    /// Whether a client may change anything at all, whatever its rights: without users, this machine alone.
    static bool mayChange(const AccessRules& rules, const SocketAddress& peer);

private:
    std::optional<HttpReply> refuseChange(const HttpRequest& request) const;
    std::optional<HttpReply> checkCookie(HttpRequest& request) const;
    HttpReply challenge(const HttpRequest& request, bool stale) const;
    static bool isPrivate(const HttpRequest& request);
    bool permits(const HttpRequest& request, const HttpAccess& access) const;

    std::vector<std::string> names_;  // in lower case
    bool anyName_ = false;
    UserAccess& users_;
};

}  // namespace refhost
