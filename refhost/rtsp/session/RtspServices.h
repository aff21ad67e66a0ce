#pragma once
// Tested by tests/refhost/rtsp/session/RequestHandler_test.cpp.

#include <memory>
#include <string>

#include "refhost/base/MonotonicClock.h"
#include "refhost/config/Config.h"
#include "refhost/rtp/multicast/MulticastServer.h"
#include "refhost/rtp/udp/UdpServer.h"
#include "refhost/rtsp/auth/Authenticator.h"
#include "refhost/rtsp/message/SdpWriter.h"
#include "refhost/rtsp/session/MediaRoutes.h"
#include "refhost/rtsp/session/SessionTable.h"

namespace refhost
{

/// The services shared by the request handlers of all connections. One object per server; outlives its
/// connections.
struct RtspServices
{
    RtspServices(const ServerConfig& config, MediaRoutes mediaRoutes, MonotonicClock monotonicClock);

    /// The time of `clock`.
    MonotonicTime now() const
    {
        return readClock(clock);
    }

    const LimitsConfig limits;
    const AuthConfig auth;
    const MonotonicClock clock;
    const MediaRoutes routes;
    SessionTable sessions;
    Authenticator authenticator;
    const SdpWriter sdp;
    /// The server's UDP ports; null refuses UDP.
    std::shared_ptr<UdpServer> udp;
    /// Null refuses multicast.
    std::shared_ptr<MulticastServer> multicast;
};

}  // namespace refhost
