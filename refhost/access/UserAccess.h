#pragma once
// Tested by tests/refhost/access/ConnectionLogin_test.cpp, tests/refhost/rtsp/connection/RtspServerRights_test.cpp.

#include <string>
#include <vector>

#include "refhost/access/AccessControl.h"
#include "refhost/access/Authenticator.h"
#include "refhost/access/LoginBrake.h"
#include "refhost/access/SignIns.h"
#include "refhost/base/HostClock.h"
#include "refhost/base/Replaceable.h"
#include "refhost/config/Config.h"

namespace refhost
{

/// The users of the server, for all of its protocols: how they log in, what they may do, and how fast somebody
/// may guess. One object per server, shared by its protocols. Threads: any.
class UserAccess
{
public:
    /// \param clock  outlives this
    UserAccess(const ServerConfig& config, const HostClock& clock);
    UserAccess(const UserAccess&) = delete;
    UserAccess& operator=(const UserAccess&) = delete;

    /// Lets these users log in from now on, with these rights, and says so in the audit log. What runs under the
    /// former rights is its owners' to end.
    void setUsers(const std::vector<UserConfig>& users, const std::vector<GroupConfig>& groups);

    /// Takes Basic and the users of certificates as this says from now on; the rest stays.
    void setPolicy(const ServerConfig& config);

    /// Whether Basic authentication is offered and accepted on a connection.
    bool takesBasic(bool encrypted) const;
    /// Values of the WWW-Authenticate headers of a 401.
    std::vector<std::string> challenges(bool stale, const Authenticator::Client& client,
                                        bool encrypted) const;
    /// Whether the common name of a client's certificate is its user.
    bool takesCertificates() const;

    Authenticator authenticator;
    AccessControl rights;
    LoginBrake brake;
    SignIns signIns;

private:
    struct Policy
    {
        explicit Policy(const ServerConfig& config);

        std::string basic;
        bool certificates;
    };

    Replaceable<Policy> policy_;
};

}  // namespace refhost
