#include "refhost/rtsp/session/RtspServices.h"

#include <ctime>
#include <utility>

namespace refhost
{

RtspServices::RtspServices(const ServerConfig& config, MediaRoutes mediaRoutes, const HostClock& hostClock)
    : policy(ServerPolicy(config)),
      clock(hostClock),
      routes(std::move(mediaRoutes)),
      sessions(config.limits),
      users(std::make_shared<UserAccess>(config, clock)),
      sdp(static_cast<std::uint64_t>(std::time(nullptr)))
{
}

void RtspServices::setPolicy(const ServerConfig& config)
{
    policy.replace(ServerPolicy(config));
    users->setPolicy(config);
    sessions.setLimits(config.limits);
}

std::size_t RtspServices::setUsers(const std::vector<UserConfig>& newUsers,
                                   const std::vector<GroupConfig>& groups)
{
    users->setUsers(newUsers, groups);
    return sessions.endUnpermitted(*users->rights.rules());
}

}  // namespace refhost
