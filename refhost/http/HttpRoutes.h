#pragma once

#include "refhost/http/HttpService.h"
#include "refhost/http/ServerView.h"

namespace refhost
{

/// The routes that the HTTP service always has, and GET /api/v1/openapi.json, which describes them.
class HttpRoutes
{
public:
    /// \param service  not started; outlived by nothing that the view names
    static void add(HttpService& service, const ServerView& view);

    /// The description of all routes, a JSON document (OpenAPI 3.1).
    static const char* openApi();
};

}  // namespace refhost
