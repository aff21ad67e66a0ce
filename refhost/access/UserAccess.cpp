#include "refhost/access/UserAccess.h"

#include "refhost/base/AuditLog.h"

namespace refhost
{

UserAccess::UserAccess(const ServerConfig& config, const HostClock& clock)
    : authenticator(config.users, config.realm, clock, config.digestWithoutQop),
      rights(AccessRules(config.users, config.groups)),
      brake(config.auth, clock),
      signIns(config.users, clock),
      policy_(Policy(config))
{
}

UserAccess::Policy::Policy(const ServerConfig& config)
    : basic(config.auth.basic), certificates(config.tls.certificateUsers)
{
}

void UserAccess::setUsers(const std::vector<UserConfig>& users, const std::vector<GroupConfig>& groups)
{
    authenticator.setUsers(users);
    rights.replace(AccessRules(users, groups));
    signIns.setUsers(users);
    AuditLog::configurationChanged("users");
}

void UserAccess::setPolicy(const ServerConfig& config)
{
    policy_.replace(Policy(config));
}

bool UserAccess::takesBasic(bool encrypted) const
{
    const auto policy = policy_.get();
    return policy->basic == "always" || (policy->basic == "tls-only" && encrypted);
}

std::vector<std::string> UserAccess::challenges(bool stale, const Authenticator::Client& client,
                                                bool encrypted) const
{
    return authenticator.challenges(stale, client, takesBasic(encrypted));
}

bool UserAccess::takesCertificates() const
{
    return policy_.get()->certificates;
}

}  // namespace refhost
