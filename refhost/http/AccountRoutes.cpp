#include "refhost/http/AccountRoutes.h"

#include <nlohmann/json.hpp>
#include <optional>
#include <utility>

#include "refhost/http/HttpGuard.h"
#include "refhost/http/JsonDocument.h"

namespace refhost
{
namespace
{

using Json = nlohmann::ordered_json;

HttpReply me(const ServerView& view, const HttpRequest& request)
{
    const auto rules = view.access->rules();
    Json rights = Json::array();
    for (const Right right : allRights)
    {
        if (rules->allows(request.user, right, std::nullopt))
        {
            rights.push_back(nameOf(right));
        }
    }
    return HttpReply::json(JsonDocument::of({{"user", request.user.empty() ? Json() : Json(request.user)},
                                             {"rights", std::move(rights)},
                                             {"mayChange", HttpGuard::mayChange(*rules, request.peer)},
                                             {"canLogIn", rules->hasLogins()}}));
}

}  // namespace

void AccountRoutes::add(HttpRouter& router, const ServerView& view)
{
    router.add({"GET", "/api/v1/me", HttpAccess::open(),
                [view](const HttpRequest& request) { return me(view, request); }});
}

}  // namespace refhost
