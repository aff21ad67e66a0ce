#pragma once

#include <string_view>
#include <vector>

#include "refhost/rtsp/session/ConnectionSessions.h"
#include "refhost/rtsp/session/Exchange.h"
#include "refhost/rtsp/session/RtspServices.h"
#include "refhost/rtsp/session/RtspSession.h"

namespace refhost
{

/// PLAY and PAUSE of one connection.
/// Threads: the connection's; `services`, `connection` and `sessions` outlive it.
class PlayVerbs
{
public:
    PlayVerbs(RtspServices& services, ClientConnection& connection, ConnectionSessions& sessions);

    /// \param attempt  which try it is; after the last one the answer is 503 instead of notReady
    VerbResult play(Exchange& exchange, RtspSession::Attempt attempt);
    void pause(Exchange& exchange);

private:
    void answerPlay(Exchange& exchange, const RtspSession& session, const PlayOrder& order,
                    const RtspSession::Played& played);
    static RtspStatus parse(const Exchange& exchange, RtspSession& session, PlayOrder& order);
    static RtspStatus pauseRecording(const Exchange& exchange, RtspSession& session);
    void flushBeforePackets(const std::vector<RtspSession::PlayedTrack>& tracks);
    static void addRecorded(ResponseWriter& out, const PlayOrder& order,
                            const RecordedPlay::Outcome& outcome);
    static void addRtpInfo(ResponseWriter& out, std::string_view base,
                           const std::vector<RtspSession::PlayedTrack>& tracks);

    RtspServices& services_;
    ClientConnection& connection_;
    ConnectionSessions& sessions_;
};

}  // namespace refhost
