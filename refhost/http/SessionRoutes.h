#pragma once
// Tested by tests/refhost/http/HttpRoutes_test.cpp.

#include "refhost/http/HttpRouter.h"
#include "refhost/http/ServerView.h"

namespace refhost
{

/// GET /api/v1/sessions, and DELETE /api/v1/sessions/{id}, which ends one. A user sees the sessions of cameras that it
/// administers, and its own.
class SessionRoutes
{
public:
    static void add(HttpRouter& router, const ServerView& view);
};

}  // namespace refhost
