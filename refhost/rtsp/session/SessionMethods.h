#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "live/IRTSPController.h"
#include "refhost/rtsp/message/TransportHeader.h"
#include "refhost/rtsp/session/ConnectionSessions.h"
#include "refhost/rtsp/session/InterleavedChannels.h"
#include "refhost/rtsp/session/OfferedKeys.h"
#include "refhost/rtsp/session/RequestAccess.h"
#include "refhost/rtsp/session/RequestContext.h"
#include "refhost/rtsp/session/RequestSecurity.h"
#include "refhost/rtsp/session/RtspServices.h"
#include "refhost/rtsp/session/RtspSession.h"
#include "refhost/rtsp/session/TrackDeliveries.h"

namespace refhost
{

/// DESCRIBE, SETUP and TEARDOWN of one connection. Threads: the connection's; a temporary, whose arguments
/// outlive it.
class SessionMethods
{
public:
    using Result = MethodResult;

    /// What later requests on the connection need of earlier ones.
    struct Memory
    {
        std::shared_ptr<InterleavedChannels> channels;  ///< null before the first interleaved track
        OfferedKeys keys;
    };

    SessionMethods(RtspServices& services, ClientConnection& connection, ConnectionSessions& sessions,
                   const RequestAccess& access, Memory& memory);

    /// \param lastTry  answer 503 instead of notReady
    Result describe(RequestContext& context, bool lastTry);
    Result setup(RequestContext& context, bool lastTry);
    void teardown(RequestContext& context);

private:
    RtspStatus createController(const RequestContext& context, bool talkBack,
                                std::optional<SafePointer<IRTSPController>>& out, bool& notReady);
    bool findGroup(SafePointer<IRTSPController>& controller, MulticastPool::Stream& stream,
                   MulticastDestination& destination);
    RtspStatus createSession(RequestContext& context, std::shared_ptr<RtspSession>& out, bool& notReady);
    void setupTrack(RequestContext& context, const std::shared_ptr<RtspSession>& session,
                    const TransportChoice& choice, const std::optional<SrtpKey>& clientKey);
    bool permitSetup(RequestContext& context, const MediaRoutes::Route* route) const;
    bool permitTrack(RequestContext& context, RtspSession& session) const;
    std::string_view transportWord(const TransportChoice& choice) const;
    void endIfEmpty(const std::shared_ptr<RtspSession>& session);

    RtspServices& services_;
    ClientConnection& connection_;
    ConnectionSessions& sessions_;
    const RequestAccess& access_;
    TrackDeliveries deliveries_;
    RequestSecurity security_;
};

}  // namespace refhost
