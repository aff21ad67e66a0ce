#include "refhost/http/SessionRoutes.h"

#include <netinet/in.h>

#include <chrono>
#include <cstring>
#include <nlohmann/json.hpp>
#include <string>

#include "refhost/base/Decimal.h"
#include "refhost/base/Log.h"
#include "refhost/http/JsonDocument.h"

namespace refhost
{
namespace
{

using Json = nlohmann::ordered_json;

constexpr int forbidden = 403;
constexpr int notFound = 404;

std::string textOf(const SocketAddress::Key& key)
{
    sockaddr_in6 address{};
    address.sin6_family = AF_INET6;
    std::memcpy(&address.sin6_addr, key.data(), key.size());
    return SocketAddress(reinterpret_cast<const sockaddr*>(&address)).text();
}

bool administers(const ServerView& view, const std::string& user, std::optional<int> camera)
{
    return view.access->rules()->allows(user, Right::admin, camera);
}

bool isOwn(const std::string& user, const std::string& owner)
{
    return !user.empty() && user == owner;
}

Json documentOf(const SessionSummary& session)
{
    Json made{{"id", std::to_string(session.number)},
              {"kind", session.kind},
              {"path", Log::safe(session.presentation)},
              {"camera", session.camera ? Json(*session.camera) : Json()},
              {"user", session.user},
              {"address", textOf(session.address)},
              {"transport", session.transport},
              {"since", JsonDocument::time(session.since)},
              {"tracks", session.tracks},
              {"playing", session.playing},
              {"bytes", session.bytes},
              {"lost", session.lost},
              {"lag", session.lag ? Json(std::chrono::duration<double>(*session.lag).count()) : Json()}};
    return made;
}

HttpReply list(const ServerView& view, const HttpRequest& request)
{
    Json sessions = Json::array();
    for (const SessionSummary& session : view.sessions->summaries())
    {
        if (isOwn(request.user, session.user) || administers(view, request.user, session.camera))
        {
            sessions.push_back(documentOf(session));
        }
    }
    return HttpReply::json(JsonDocument::of({{"sessions", std::move(sessions)}}));
}

HttpReply end(const ServerView& view, const HttpRequest& request)
{
    const auto number = parseDecimal<std::uint64_t>(request.part("id"));
    const auto session = number ? view.sessions->numbered(*number) : nullptr;
    const bool own = session != nullptr && isOwn(request.user, session->owner().user());
    const bool admin = session != nullptr && administers(view, request.user, session->target().camera);
    if (!own && !admin)
    {
        return HttpReply::problem(notFound, "There is no such session.");
    }
    if (!admin)
    {
        return HttpReply::problem(forbidden, "Ending a session needs the right \"admin\" to its camera.");
    }
    const std::string who =
        request.user.empty() ? request.peer.text() : "user \"" + Log::safe(request.user) + "\"";
    view.sessions->endUnexpectedly(session, who + " asked for it over HTTP");
    return HttpReply::empty();
}

}  // namespace

void SessionRoutes::add(HttpRouter& router, const ServerView& view)
{
    // Both wait for requests of the sessions.
    router.add({"GET", "/api/v1/sessions", HttpAccess::shared(),
                [view](const HttpRequest& request) { return list(view, request); }, true});
    router.add({"DELETE", "/api/v1/sessions/{id}", HttpAccess::shared(),
                [view](const HttpRequest& request) { return end(view, request); }, true});
}

}  // namespace refhost
