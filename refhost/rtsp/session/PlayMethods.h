#pragma once

#include <string_view>
#include <vector>

#include "refhost/rtsp/session/ConnectionSessions.h"
#include "refhost/rtsp/session/RequestAccess.h"
#include "refhost/rtsp/session/RequestContext.h"
#include "refhost/rtsp/session/RtspServices.h"
#include "refhost/rtsp/session/RtspSession.h"

namespace refhost
{

/// PLAY and PAUSE of one connection.
/// Threads: the connection's; a temporary, whose arguments outlive it.
class PlayMethods
{
public:
    PlayMethods(RtspServices& services, ClientConnection& connection, ConnectionSessions& sessions,
                const RequestAccess& access);

    /// \param attempt  the last one is answered 503 instead of notReady
    MethodResult play(RequestContext& context, RtspSession::Attempt attempt);
    void pause(RequestContext& context);

private:
    void answerPlay(RequestContext& context, const RtspSession& session, const PlayRequest& order,
                    const RtspSession::Played& played);
    static RtspStatus parse(const RequestContext& context, RtspSession& session, PlayRequest& order);
    static RtspStatus pauseRecording(const RequestContext& context, RtspSession& session);
    void flushBeforePackets(const std::vector<RtspSession::PlayedTrack>& tracks);
    static void addRecorded(ResponseWriter& out, const PlayRequest& order,
                            const RecordedPlay::Outcome& outcome);
    static void addRtpInfo(ResponseWriter& out, std::string_view base,
                           const std::vector<RtspSession::PlayedTrack>& tracks);

    RtspServices& services_;
    ClientConnection& connection_;
    ConnectionSessions& sessions_;
    const RequestAccess& access_;
};

}  // namespace refhost
