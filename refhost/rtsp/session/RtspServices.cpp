#include "refhost/rtsp/session/RtspServices.h"

#include <ctime>
#include <utility>

#include "refhost/base/AuditLog.h"

namespace refhost
{

RtspServices::RtspServices(const ServerConfig& config, MediaRoutes mediaRoutes, const HostClock& hostClock)
    : policy(ServerPolicy(config)),
      clock(hostClock),
      routes(std::move(mediaRoutes)),
      sessions(config.limits),
      authenticator(config.users, config.realm, clock, config.digestWithoutQop),
      access(AccessRules(config.users, config.groups)),
      brake(config.auth, clock),
      sdp(static_cast<std::uint64_t>(std::time(nullptr)))
{
}

void RtspServices::setPolicy(const ServerConfig& config)
{
    policy.replace(ServerPolicy(config));
    sessions.setLimits(config.limits);
}

std::size_t RtspServices::setUsers(const std::vector<UserConfig>& users,
                                   const std::vector<GroupConfig>& groups)
{
    authenticator.setUsers(users);
    access.replace(AccessRules(users, groups));
    AuditLog::configurationChanged("users");
    return sessions.endUnpermitted(*access.rules());
}

}  // namespace refhost
