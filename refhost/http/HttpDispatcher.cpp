#include "refhost/http/HttpDispatcher.h"

#include <exception>
#include <memory>
#include <optional>
#include <utility>

#include "refhost/base/Log.h"

namespace refhost
{
namespace
{

constexpr int badRequest = 400;
constexpr int notFound = 404;
constexpr int methodNotAllowed = 405;
constexpr int tooManyRequests = 429;
constexpr int failed = 500;
constexpr int unavailable = 503;

HttpReply later(int status, std::string_view detail)
{
    HttpReply reply = HttpReply::problem(status, detail);
    reply.with("Retry-After", "1");
    return reply;
}

HttpReply failure(const HttpRouter::Route& route, const std::exception& error)
{
    Log::error("HTTP: {} {} failed: {}", route.method, route.pattern, Log::safe(error.what()));
    return HttpReply::problem(failed, "The server failed to do this: its log says why.");
}

HttpReply handled(const HttpRouter::Route& route, const HttpRequest& request)
{
    try
    {
        return route.handler(request);
    }
    catch (const std::exception& error)
    {
        return failure(route, error);
    }
}

void handleLater(const HttpRouter::Route& route, const HttpRequest& request,
                 const HttpRouter::Respond& respond)
{
    try
    {
        route.later(request, respond);
    }
    catch (const std::exception& error)
    {
        respond(failure(route, error));
    }
}

}  // namespace

HttpDispatcher::HttpDispatcher(const HttpConfig& config, const HttpGuard& guard, const HttpRouter& router,
                               BackgroundWork& work, const HostClock& clock, After after)
    : guard_(guard), router_(router), work_(work), clock_(clock), after_(std::move(after)), rate_(config.rate)
{
}

void HttpDispatcher::dispatch(HttpRequest request, const HttpConnection::Respond& respond)
{
    if (!rate_.admit(request.peer.key(), clock_.now()))
    {
        respond(
            later(tooManyRequests, "This address sends more requests a second than rate of [http] permits."));
        return;
    }
    if (auto refusal = guard_.refuseOrigin(request))
    {
        respond(std::move(*refusal));
        return;
    }
    auto target = HttpTarget::parse(request.head.target);
    if (!target)
    {
        respond(HttpReply::problem(badRequest, "The request's target is no path of this server."));
        return;
    }
    request.target = std::move(*target);
    HttpRouter::Match match = router_.find(request.head.method, request.target.segments);
    if (match.route == nullptr)
    {
        const bool exists = !match.allowed.empty();
        HttpReply reply = exists ? HttpReply::problem(methodNotAllowed, "This path has other methods.")
                                 : HttpReply::problem(notFound, "There is nothing at this path.");
        if (exists)
        {
            reply.with("Allow", match.allowed);
        }
        respond(std::move(reply));
        return;
    }
    request.parts = std::move(match.parts);
    authorize(*match.route, std::move(request), respond);
}

/// A request whose password is being checked, or which has to wait after wrong ones, is checked again later. The
/// connection reads no other meanwhile, and is closed where that takes too long.
void HttpDispatcher::authorize(const HttpRouter::Route& route, HttpRequest request,
                               const HttpConnection::Respond& respond)
{
    HttpGuard::Finding finding = guard_.checkUser(request, *request.login, route.access);
    if (finding.again)
    {
        after_(*finding.again,
               [this, &route, request = std::move(request), respond]
               {
                   if (request.cancelled->load())
                   {
                       request.login->giveUp();
                       return;
                   }
                   authorize(route, request, respond);
               });
        return;
    }
    if (finding.refusal)
    {
        respond(std::move(*finding.refusal));
        return;
    }
    call(route, std::move(request), respond);
}

void HttpDispatcher::call(const HttpRouter::Route& route, HttpRequest request,
                          const HttpConnection::Respond& respond)
{
    if (route.later)
    {
        handleLater(route, request, respond);
        return;
    }
    if (!route.background)
    {
        respond(handled(route, request));
        return;
    }
    BackgroundWork::Permit permit = work_.admit();
    if (permit == nullptr)
    {
        respond(later(unavailable, "The server has too much to do: see background of [http]."));
        return;
    }
    work_.run(
        [&route, request = std::move(request), respond]
        {
            if (!request.cancelled->load())
            {
                respond(handled(route, request));
            }
        },
        std::move(permit));
}

}  // namespace refhost
