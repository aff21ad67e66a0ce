#pragma once

#include <string_view>
#include <vector>

#include "refhost/rtsp/Exchange.h"
#include "refhost/rtsp/FrontServices.h"
#include "refhost/rtsp/LinkSessions.h"
#include "refhost/rtsp/RtspSession.h"

namespace refhost
{

/// PLAY and PAUSE of one connection.
/// Threads: the connection's; `services`, `link` and `sessions` outlive it.
class PlayVerbs
{
public:
    PlayVerbs(FrontServices& services, ClientLink& link, LinkSessions& sessions);

    void play(Exchange& exchange);
    void pause(Exchange& exchange);

private:
    void flushBeforePackets(const std::vector<RtspSession::PlayedTrack>& tracks);
    static void addRtpInfo(ResponseWriter& out, std::string_view base,
                           const std::vector<RtspSession::PlayedTrack>& tracks);

    FrontServices& services_;
    ClientLink& link_;
    LinkSessions& sessions_;
};

}  // namespace refhost
