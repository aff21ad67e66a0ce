#pragma once
// Tested by tests/refhost/rtsp/session/RightsMatrix_test.cpp, tests/refhost/rtsp/connection/RtspServerRights_test.cpp.

#include "refhost/access/Right.h"
#include "refhost/rtsp/session/MediaTarget.h"
#include "refhost/rtsp/session/RequestContext.h"
#include "refhost/rtsp/session/RtspServices.h"

namespace refhost
{

/// What the users of one connection may do, and the answers for those who may not.
///
/// Threads: the connection's; a temporary, whose arguments outlive it.
class RequestAccess
{
public:
    RequestAccess(RtspServices& services, ClientConnection& connection);

    /// Whether the request's user has the right to `target`.
    bool allows(const RequestContext& context, const MediaTarget& target, Right right) const;

    /// Answers 401 where logging in could help, otherwise 403, and logs the reason of a 403.
    void refuse(RequestContext& context, const MediaTarget& target, Right right) const;

    /// Answers 401.
    /// \param stale  the password was right, but the nonce is used up
    void challenge(RequestContext& context, bool stale) const;

private:
    RtspServices& services_;
    ClientConnection& connection_;
};

}  // namespace refhost
