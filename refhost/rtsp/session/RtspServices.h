#pragma once
// Tested by tests/refhost/rtsp/session/RequestHandler_test.cpp.

#include <cstddef>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "refhost/access/UserAccess.h"
#include "refhost/base/HostClock.h"
#include "refhost/base/Replaceable.h"
#include "refhost/config/Config.h"
#include "refhost/rtp/multicast/MulticastServer.h"
#include "refhost/rtp/udp/UdpServer.h"
#include "refhost/rtsp/message/SdpWriter.h"
#include "refhost/rtsp/session/CommonControllers.h"
#include "refhost/rtsp/session/GroupKeys.h"
#include "refhost/rtsp/session/MediaRoutes.h"
#include "refhost/rtsp/session/ServerPolicy.h"
#include "refhost/rtsp/session/SessionTable.h"

namespace refhost
{

/// The services shared by the request handlers of all connections. One object per server; outlives its
/// connections.
struct RtspServices
{
    /// \param hostClock  outlives the services
    RtspServices(const ServerConfig& config, MediaRoutes mediaRoutes, const HostClock& hostClock);

    /// The time of `clock`.
    MonotonicTime now() const
    {
        return clock.now();
    }

    /// Lets these users log in from now on, with these rights, and ends the sessions of those whose rights do
    /// not suffice any more. What is not ended goes on, also after a change of password. Threads: one at a
    /// time.
    /// \returns how many sessions it ended
    std::size_t setUsers(const std::vector<UserConfig>& newUsers, const std::vector<GroupConfig>& groups);

    /// Judges requests by another configuration from now on; what runs goes on, but for groups that are to be encrypted
    /// and are not, or the other way round. Users are not among it. Threads: one at a time.
    void setPolicy(const ServerConfig& config);

    /// Ends the sessions of live streams that `which` names, and forgets the keys of their groups.
    /// \param why  for the log
    /// \returns how many it ended
    std::size_t endStreams(const std::function<bool(int camera, int stream)>& which, const std::string& why);

    Replaceable<ServerPolicy> policy;
    const HostClock& clock;
    const MediaRoutes routes;
    CommonControllers controllers;
    SessionTable sessions;
    const std::shared_ptr<UserAccess> users;  ///< not null; other protocols may share it
    GroupKeys groupKeys;
    const SdpWriter sdp;
    /// The server's UDP ports; null refuses UDP.
    std::shared_ptr<UdpServer> udp;
    /// Null refuses multicast.
    std::shared_ptr<MulticastServer> multicast;

private:
    std::size_t endMembers(const std::set<GroupKeys::Stream>& groups, const std::string& why);
};

}  // namespace refhost
