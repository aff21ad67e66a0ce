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
#include "refhost/rtsp/auth/LoginBrake.h"

namespace refhost
{

/// The users of the HTTP service, which are those of RTSP. All outlive it.
struct HttpUsers
{
    Authenticator* authenticator;
    LoginBrake* brake;
    const AccessControl* access;
};

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
    HttpGuard(const ServerConfig& config, const HttpUsers& users);

    /// Checks what does not depend on the route.
    /// \returns the refusal; nothing when the request is permitted
    std::optional<HttpReply> refuseOrigin(const HttpRequest& request) const;

    /// Asks whether the credentials of a request may be compared, and when. \see LoginBrake
    /// \param[out] refusal  set where they may not
    LoginBrake::Admission admit(const HttpRequest& request, std::optional<HttpReply>& refusal) const;

    /// Checks who the user is, and the rights.
    /// \param request  with its parts; `user` is set when it is permitted
    /// \returns the refusal; nothing when the request is permitted
    std::optional<HttpReply> refuseUser(HttpRequest& request, const HttpAccess& access) const;

    /// Whether a Host header names this server.
    /// \param host  its value, with or without a port
    bool isOwnName(std::string_view host) const;

private:
    std::optional<HttpReply> refuseChange(const HttpRequest& request) const;
    void noteFailure(const HttpRequest& request, Authenticator::Denial denial) const;
    HttpReply challenge(const HttpRequest& request, bool stale) const;
    bool acceptsBasic(const HttpRequest& request) const;
    bool permits(const HttpRequest& request, const HttpAccess& access) const;

    const std::string basic_;
    std::vector<std::string> names_;  // in lower case
    bool anyName_ = false;
    const HttpUsers users_;
};

}  // namespace refhost
