#include "refhost/http/AccountRoutes.h"

#include <nlohmann/json.hpp>
#include <optional>
#include <utility>

#include "refhost/http/HttpGuard.h"
#include "refhost/http/JsonDocument.h"
#include "refhost/http/SignInCookie.h"

namespace refhost
{
namespace
{

using Json = nlohmann::ordered_json;

constexpr int unauthorized = 401;
constexpr int conflict = 409;

HttpReply me(const UserAccess& users, const HttpGuard& guard, const HttpRequest& request)
{
    const auto rules = users.rights.rules();
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
                                             {"signedIn", !request.signIn.empty()},
                                             {"canSignIn", guard.takesPasswords(request)}}));
}

HttpReply signIn(UserAccess& users, const HttpRequest& request)
{
    if (!users.rights.rules()->hasLogins())
    {
        return HttpReply::problem(conflict, "There are no users to sign in as.");
    }
    const auto token = request.user.empty() ? std::nullopt : users.signIns.open(request.user);
    if (!token)
    {
        HttpReply reply = HttpReply::problem(unauthorized, "Sign in with the name and password of a user.");
        reply.with("WWW-Authenticate", "Basic realm=\"ovrtspd\"");
        return reply;
    }
    if (!request.signIn.empty())
    {
        users.signIns.close(request.signIn);
    }
    HttpReply reply = HttpReply::empty();
    reply.with("Set-Cookie", SignInCookie::text(*token, request.encrypted));
    return reply;
}

HttpReply signOut(UserAccess& users, const HttpRequest& request)
{
    users.signIns.close(request.signIn);
    HttpReply reply = HttpReply::empty();
    reply.with("Set-Cookie", SignInCookie::text("", request.encrypted));
    return reply;
}

}  // namespace

void AccountRoutes::add(HttpRouter& router, UserAccess& users, const HttpGuard& guard)
{
    router.add({"GET", "/api/v1/me", HttpAccess::open(),
                [&users, &guard](const HttpRequest& request) { return me(users, guard, request); }});
    router.add({"POST", "/api/v1/session", HttpAccess::open(),
                [&users](const HttpRequest& request) { return signIn(users, request); }});
    router.add({"DELETE", "/api/v1/session", HttpAccess::open(),
                [&users](const HttpRequest& request) { return signOut(users, request); }});
}

}  // namespace refhost
