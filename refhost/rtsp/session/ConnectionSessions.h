#pragma once
// Tested by tests/refhost/rtsp/session/SessionMethods_test.cpp.

#include <memory>
#include <vector>

#include "refhost/rtsp/session/RequestContext.h"
#include "refhost/rtsp/session/RtspServices.h"
#include "refhost/rtsp/session/RtspSession.h"

namespace refhost
{

/// The sessions used on one connection: finds the session of a request, and ends those with interleaved
/// tracks when the connection ends.
///
/// Threads: the connection's; `services` and `connection` outlive it.
class ConnectionSessions
{
public:
    ConnectionSessions(RtspServices& services, ClientConnection& connection);

    /// Finds the session that the request names and notes the activity.
    /// \returns null without a Session header, or for a session that does not exist or is another client's
    std::shared_ptr<RtspSession> find(const RequestContext& context);

    /// The same for a method that needs a session of the URL's presentation; answers the request if there is
    /// none.
    /// \returns null when the request was answered
    std::shared_ptr<RtspSession> of(RequestContext& context);

    /// Remembers a session and forgets ended ones.
    void use(const std::shared_ptr<RtspSession>& session);

    /// Adds "Session: <id>;timeout=<seconds>".
    void addHeader(ResponseWriter& out, const RtspSession& session) const;

    /// True while a session used on this connection has not ended.
    bool carriesSession();
    /// The client's TCP acknowledged data at `time`.
    void connectionAnswered(MonotonicTime time);
    /// The connection ended.
    void connectionEnded();

private:
    RtspServices& services_;
    ClientConnection& connection_;
    std::vector<std::weak_ptr<RtspSession>> sessions_;
};

}  // namespace refhost
