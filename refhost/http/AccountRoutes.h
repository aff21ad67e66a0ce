#pragma once
// Tested by tests/refhost/http/AccountRoutes_test.cpp.

#include "refhost/access/UserAccess.h"
#include "refhost/http/HttpRouter.h"

namespace refhost
{

class HttpGuard;

/// Who the client is.
///
/// - GET /api/v1/me: its name and what it may do with every camera, so that a page shows nothing else.
/// - POST /api/v1/session, with credentials: signs in. The reply sets a cookie, with which the browser is that user.
/// - DELETE /api/v1/session: signs out.
class AccountRoutes
{
public:
    /// \param users, guard  outlive the router
    static void add(HttpRouter& router, UserAccess& users, const HttpGuard& guard);
};

}  // namespace refhost
