#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "refhost/rtsp/message/RequestReader.h"
#include "refhost/rtsp/session/ConnectionSessions.h"
#include "refhost/rtsp/session/PlayMethods.h"
#include "refhost/rtsp/session/RequestContext.h"
#include "refhost/rtsp/session/RtspServices.h"
#include "refhost/rtsp/session/SessionMethods.h"

namespace refhost
{

/// Handles the requests of one connection, one after the other: checks what holds for every request, then
/// the method. Every request gets exactly one response, through the ClientConnection; whatever goes wrong inside is a
/// 500 and one line in the log.
///
/// Knows nothing of sockets. Threads: the connection's; `services` and `connection` outlive it.
class RequestHandler
{
public:
    enum class Result
    {
        answered,
        /// Answered; the connection is to be ended when the response is out.
        answeredLast,
        /// Nothing was answered, because the media is not ready yet: hand the same request in again when
        /// ChangeSignal tells of a change.
        notReady
    };

    RequestHandler(RtspServices& services, ClientConnection& connection);

    /// \param out      where the response is written; used by one handler at a time
    /// \param lastTry  answer now: the stream had time enough
    Result handle(const RtspRequest& request, ResponseWriter& out, bool lastTry);

    /// Answers a message that the reader found malformed.
    Result reject(const RtspRequest& request, const RequestReader::Problem& problem, ResponseWriter& out);

    /// Answers 503, for a connection that the server has no room for.
    Result refuse(const RtspRequest& request, ResponseWriter& out);

    /// An interleaved frame from the client.
    void received(const RequestReader::Frame& frame);

    /// True when some request came with the credentials of a configured user.
    bool loggedIn() const;
    /// True while a session exists that this connection used.
    bool carriesSession();
    /// The client's TCP acknowledged data at `time`.
    void connectionAnswered(MonotonicTime time);
    /// The connection is gone. Once.
    void connectionEnded();

private:
    Result dispatch(RequestContext& context, bool lastTry);
    bool accept(RequestContext& context, const std::optional<std::string>& admitted);
    bool authorize(RequestContext& context);
    void options(RequestContext& context);
    void parameters(RequestContext& context);
    void methodNotAllowed(RequestContext& context);

    RtspServices& services_;
    ClientConnection& connection_;
    ConnectionSessions sessions_;
    SessionMethods methods_;
    PlayMethods playing_;
    Authenticator::Client client() const;

    /// Who asks in the next request, where it is one that was let in before and had to wait.
    std::optional<std::string> admitted_;
    bool loggedIn_ = false;
};

}  // namespace refhost
