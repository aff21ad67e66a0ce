#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "refhost/access/AccessControl.h"
#include "refhost/config/Config.h"
#include "refhost/http/HttpAccess.h"
#include "refhost/http/HttpReply.h"
#include "refhost/http/HttpRequest.h"
#include "refhost/rtsp/auth/Authenticator.h"

namespace refhost
{

/// Decides who may send which request to the HTTP service.
///
/// Everything needs a Host header that names this server, so that no web page reaches the service through a name of its
/// own (DNS rebinding). What changes something must not be sent by a page of another site, and without configured users
/// it must come from this machine.
///
/// Threads: any.
class HttpGuard
{
public:
    /// \param authenticator  outlives the guard, as `access` does
    HttpGuard(const ServerConfig& config, Authenticator& authenticator, const AccessControl& access);

    /// Checks what does not depend on the route.
    /// \returns the refusal; nothing when the request is permitted
    std::optional<HttpReply> refuseOrigin(const HttpRequest& request) const;

    /// Checks who the user is, and the rights.
    /// \param request  with its parts; `user` is set when it is permitted
    /// \returns the refusal; nothing when the request is permitted
    std::optional<HttpReply> refuseUser(HttpRequest& request, const HttpAccess& access) const;

    /// Whether a Host header names this server.
    /// \param host  its value, with or without a port
    bool isOwnName(std::string_view host) const;

private:
    std::optional<HttpReply> refuseChange(const HttpRequest& request) const;
    HttpReply challenge(const HttpRequest& request, bool stale) const;
    bool acceptsBasic(const HttpRequest& request) const;
    bool permits(const HttpRequest& request, const HttpAccess& access) const;

    const std::string basic_;
    std::vector<std::string> names_;  // in lower case
    bool anyName_ = false;
    Authenticator& authenticator_;
    const AccessControl& access_;
};

}  // namespace refhost
