#pragma once
// Tested by tests/refhost/http/HttpRoutes_test.cpp.

#include "refhost/http/HttpRouter.h"
#include "refhost/http/ServerView.h"

namespace refhost
{

/// GET /api/v1/cameras and /api/v1/streams, for the cameras that the user may see, and POST
/// /api/v1/cameras/{camera}/restart, which starts the sources of a camera again.
class CameraRoutes
{
public:
    static void add(HttpRouter& router, const ServerView& view);
};

}  // namespace refhost
