#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "refhost/access/ConnectionLogin.h"
#include "refhost/rtsp/message/RequestReader.h"
#include "refhost/rtsp/session/ConnectionSessions.h"
#include "refhost/rtsp/session/RequestAccess.h"
#include "refhost/rtsp/session/RequestContext.h"
#include "refhost/rtsp/session/RtspServices.h"
#include "refhost/rtsp/session/SessionMethods.h"

namespace refhost
{

/// Handles the requests of one connection in turn: common checks, then the method. Every request gets exactly
/// one response through the ClientConnection; an internal failure is a 500 and one line in the log.
///
/// Knows nothing of sockets. Threads: the connection's; `services` and `connection` outlive it.
class RequestHandler
{
public:
    enum class Result
    {
        answered,
        /// Answered; close the connection after the response.
        answeredLast,
        /// Not answered, because the media is not ready or a password is being checked: handle the same request again when ChangeSignal
        /// reports a change.
        notReady,
        /// Not answered, because wrong passwords came before: handle the same request again after delay().
        delayed
    };

    RequestHandler(RtspServices& services, ClientConnection& connection);

    /// \param out      writes the response; used by one handler at a time
    /// \param lastTry  answer now: the deadline passed
    Result handle(const RtspRequest& request, ResponseWriter& out, bool lastTry);

    /// How long to wait, after `delayed`.
    Duration delay() const;

    /// Answers a message that the reader found malformed.
    Result reject(const RtspRequest& request, const RequestReader::Problem& problem, ResponseWriter& out);

    /// Answers 503, for a connection beyond the server's limits.
    Result refuse(const RtspRequest& request, ResponseWriter& out);

    /// Takes an interleaved frame from the client.
    void received(const RequestReader::Frame& frame);

    /// True after a request with the credentials of a configured user.
    bool loggedIn() const;
    /// True while a session used on this connection exists.
    bool carriesSession();
    /// The client's TCP acknowledged data at `time`.
    void connectionAnswered(MonotonicTime time);
    /// The connection ended. Call once.
    void connectionEnded();

private:
    Result dispatch(RequestContext& context, bool lastTry);
    RequestAccess access() const;
    bool accept(RequestContext& context, const std::string* admitted);
    bool authorize(RequestContext& context);
    bool admitAnonymous(RequestContext& context);
    void refuse(RequestContext& context, Duration span);
    void options(RequestContext& context);
    void parameters(RequestContext& context);
    void methodNotAllowed(RequestContext& context);

    RtspServices& services_;
    ClientConnection& connection_;
    ConnectionSessions sessions_;
    SessionMethods::Memory memory_;

    /// The user of the next request, if that one was authenticated before it was deferred; null otherwise.
    std::unique_ptr<const std::string> admitted_;
    ConnectionLogin login_;
    Duration delay_{0};                                                     // of the present request
    ConnectionLogin::Result decided_ = ConnectionLogin::Result::challenge;  // of the present request
    bool lastTry_ = false;                                                  // answer the present request now
};

}  // namespace refhost
