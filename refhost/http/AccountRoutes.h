#pragma once
// Tested by tests/refhost/http/HttpRoutes_test.cpp.

#include "refhost/http/HttpRouter.h"
#include "refhost/http/ServerView.h"

namespace refhost
{

/// GET /api/v1/me: who the client is and what it may do with every camera, so that a page shows nothing else.
class AccountRoutes
{
public:
    static void add(HttpRouter& router, const ServerView& view);
};

}  // namespace refhost
