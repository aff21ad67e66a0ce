#pragma once
// Tested by tests/refhost/http/HttpRoutes_test.cpp.

#include <functional>

#include "refhost/http/HttpRouter.h"
#include "refhost/http/ServerView.h"

namespace refhost
{

class HttpService;

/// GET /metrics: the server's state for Prometheus. For users with the right "live" to every camera.
///
/// Everything is read when it is asked for, from where it is kept: media count nothing for it. Labels are cameras,
/// streams, and words of fixed lists.
class MetricsRoutes
{
public:
    /// \param service  outlives the routes
    static void add(HttpRouter& router, const ServerView& view, const HttpService& service);
};

}  // namespace refhost
