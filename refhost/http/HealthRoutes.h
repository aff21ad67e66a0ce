#pragma once

#include "refhost/http/HttpRouter.h"
#include "refhost/http/ServerView.h"

namespace refhost
{

/// GET /healthz and /readyz, for supervisors: whether the process answers, and whether every stream that must run does.
/// Both need no login; which streams do not run is for those who may see them.
class HealthRoutes
{
public:
    static void add(HttpRouter& router, const ServerView& view);
};

}  // namespace refhost
