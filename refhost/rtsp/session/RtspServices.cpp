#include "refhost/rtsp/session/RtspServices.h"

#include <algorithm>
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
    const auto before = policy.get();
    policy.replace(ServerPolicy(config));
    users->setPolicy(config);
    sessions.setLimits(config.limits);
    const auto after = policy.get();
    sessions.endThose(
        [&](const RtspSession& session)
        {
            const auto camera = session.target().camera;
            return session.shared() != nullptr &&
                   MediaSecurity::encryptsGroup(before->security.of(camera)) !=
                       MediaSecurity::encryptsGroup(after->security.of(camera));
        },
        "the protection of its group changed");
}

std::size_t RtspServices::setUsers(const std::vector<UserConfig>& newUsers,
                                   const std::vector<GroupConfig>& groups)
{
    users->setUsers(newUsers, groups);
    const auto rules = users->rights.rules();
    const std::size_t ended = sessions.endUnpermitted(*rules);
    const auto exposed = groupKeys.drop(
        [&](GroupKeys::Stream stream, const auto& holders)
        {
            return std::any_of(holders.begin(), holders.end(),
                               [&](const std::string& user)
                               { return !rules->allows(user, Right::live, stream.first); });
        });
    return ended + endMembers(exposed, "its group gets another key, for a viewer lost the right to watch it");
}

/// The members of groups.
std::size_t RtspServices::endMembers(const std::set<GroupKeys::Stream>& groups, const std::string& why)
{
    return groups.empty()
               ? 0
               : sessions.endThose(
                     [&groups](const RtspSession& session)
                     { return session.shared() != nullptr && groups.count(session.shared()->stream) != 0; },
                     why);
}

std::size_t RtspServices::endStreams(const std::function<bool(int camera, int stream)>& which,
                                     const std::string& why)
{
    groupKeys.drop([&](GroupKeys::Stream stream, const auto&) { return which(stream.first, stream.second); });
    return sessions.endThose(
        [&which](const RtspSession& session)
        {
            const auto stream = session.liveStream();
            return stream && which(stream->first, stream->second);
        },
        why);
}

}  // namespace refhost
