#pragma once
// Tested by tests/refhost/http/HttpRoutes_test.cpp.

#include "refhost/http/HttpRouter.h"
#include "refhost/http/ServerView.h"

namespace refhost
{

/// GET /api/v1/storage: the disk that the recordings are on, its limits, and each camera's share. For users with the right
/// "admin" to every camera.
class StorageRoute
{
public:
    static void add(HttpRouter& router, const ServerView& view);
};

}  // namespace refhost
