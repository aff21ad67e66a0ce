#include "refhost/rtsp/session/RtspServices.h"

#include <ctime>
#include <utility>

namespace refhost
{

RtspServices::RtspServices(const ServerConfig& config, MediaRoutes mediaRoutes, const HostClock& hostClock)
    : limits(config.limits),
      auth(config.auth),
      clock(hostClock),
      routes(std::move(mediaRoutes)),
      sessions(limits),
      authenticator(config.users, config.realm, clock, config.digestWithoutQop),
      sdp(static_cast<std::uint64_t>(std::time(nullptr)))
{
}

}  // namespace refhost
