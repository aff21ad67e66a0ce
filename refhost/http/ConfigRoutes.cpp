#include "refhost/http/ConfigRoutes.h"

#include <nlohmann/json.hpp>

#include "refhost/config/ConfigWriter.h"
#include "refhost/http/JsonDocument.h"

namespace refhost
{

void ConfigRoutes::add(HttpRouter& router, const ServerView& view)
{
    router.add({"GET", "/api/v1/config", HttpAccess::server(Right::admin), [view](const HttpRequest&) {
                    return HttpReply::json(JsonDocument::of({{"toml", ConfigWriter::write(*view.config())}}));
                }});
}

}  // namespace refhost
