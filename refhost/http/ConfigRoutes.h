#pragma once
// Tested by tests/refhost/http/HttpRoutes_test.cpp.

#include "refhost/http/HttpRouter.h"
#include "refhost/http/ServerView.h"

namespace refhost
{

/// GET /api/v1/config: the configuration in force as a file, every key explained, without passwords and with the
/// credentials of locations masked. For users with the right "admin" to every camera.
class ConfigRoutes
{
public:
    static void add(HttpRouter& router, const ServerView& view);
};

}  // namespace refhost
