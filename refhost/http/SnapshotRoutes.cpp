#include "refhost/http/SnapshotRoutes.h"

#include <fmt/format.h>

#include <optional>
#include <string>
#include <utility>

#include "refhost/base/Decimal.h"
#include "refhost/config/CameraSet.h"
#include "refhost/export/InstantText.h"

namespace refhost
{
namespace
{

constexpr int notModified = 304;
constexpr int badRequest = 400;
constexpr int forbidden = 403;
constexpr int notFound = 404;
constexpr int badGateway = 502;
constexpr int unavailable = 503;

struct Requested
{
    int camera = 0;
    int stream = 0;
    int width = 0;
    std::optional<WallTime> time;
};

/// \returns nothing, or the reply that says what is wrong
std::optional<HttpReply> read(const HttpRequest& request, Requested& out)
{
    const auto camera = parseDecimal<int>(request.part("camera"), CameraSet::maxId);
    const auto stream = parseDecimal<int>(request.part("stream"), CameraSet::maxId);
    if (!camera || !stream)
    {
        return HttpReply::problem(notFound, "There is no such stream.");
    }
    out.camera = *camera;
    out.stream = *stream;
    if (const auto text = request.target.parameter("width"))
    {
        const auto width = parseDecimal<int>(*text, SnapshotService::maxWidth);
        if (!width || *width < SnapshotService::minWidth)
        {
            return HttpReply::problem(badRequest,
                                      fmt::format("The parameter width must be {} to {} pixels.",
                                                  SnapshotService::minWidth, SnapshotService::maxWidth));
        }
        out.width = *width;
    }
    if (const auto text = request.target.parameter("time"))
    {
        out.time = InstantText::parse(*text);
        if (!out.time)
        {
            return HttpReply::problem(badRequest,
                                      "The parameter time must be seconds since 1970, or a time such as "
                                      "2026-01-31T12:00:00.5Z.");
        }
    }
    return std::nullopt;
}

HttpReply refusal(SnapshotService::Problem problem, const std::string& reason)
{
    const std::string detail = "There is no snapshot: " + reason + ".";
    switch (problem)
    {
        case SnapshotService::Problem::notReady:
            return HttpReply::problem(unavailable, detail).with("Retry-After", "1");
        case SnapshotService::Problem::corrupt:
            return HttpReply::problem(badGateway, detail);
        default:
            return HttpReply::problem(notFound, detail);
    }
}

HttpReply snapshot(const HttpRequest& request, const ServerView& view, SnapshotService& snapshots)
{
    Requested requested;
    if (auto problem = read(request, requested))
    {
        return std::move(*problem);
    }
    const Right needed = requested.time ? Right::playback : Right::live;
    if (!view.access->rules()->allows(request.user, needed, requested.camera))
    {
        return HttpReply::problem(forbidden, "This user lacks the right to do that.");
    }
    const SnapshotService::Result result =
        requested.time
            ? snapshots.recorded(requested.camera, requested.stream, *requested.time, requested.width)
            : snapshots.live(requested.camera, requested.stream, requested.width);
    if (result.jpeg == nullptr)
    {
        return refusal(result.problem, result.error);
    }
    const std::string tag = '"' + result.name + '"';
    const bool known = request.head.field("If-None-Match").find(tag) != std::string_view::npos;
    HttpReply reply = known ? HttpReply::empty(notModified) : HttpReply::of("image/jpeg", "");
    reply.with("ETag", tag)
        .with("Cache-Control", requested.time ? "private, max-age=3600" : "private, no-cache");
    if (!known)
    {
        reply.shared = result.jpeg;
    }
    return reply;
}

}  // namespace

void SnapshotRoutes::add(HttpRouter& router, const ServerView& view,
                         std::shared_ptr<SnapshotService> snapshots)
{
    HttpRouter::Route route{"GET", "/api/v1/cameras/{camera}/streams/{stream}/snapshot.jpg",
                            HttpAccess::shared(),
                            [view, snapshots = std::move(snapshots)](const HttpRequest& request)
                            { return snapshot(request, view, *snapshots); }};
    route.background = true;
    router.add(std::move(route));
}

}  // namespace refhost
