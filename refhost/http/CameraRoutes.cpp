#include "refhost/http/CameraRoutes.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <utility>

#include "refhost/base/Decimal.h"
#include "refhost/base/Log.h"
#include "refhost/config/CameraSet.h"
#include "refhost/http/JsonDocument.h"
#include "refhost/media/Device.h"

namespace refhost
{
namespace
{

using Json = nlohmann::ordered_json;

constexpr int accepted = 202;
constexpr int notFound = 404;

std::string codecName(const std::optional<Codec>& codec)
{
    return codec ? std::string(infoOf(*codec).name) : "none";
}

Json documentOf(const ServerView& view, const CameraConfig& camera, const StreamConfig& stream)
{
    const CameraStatus status = view.cameras->find(camera.id, stream.id).value_or(CameraStatus());
    const auto streams = Device::streams();
    const auto source = streams == nullptr ? nullptr : streams->find(camera.id, stream.id);
    const auto recording =
        view.recording == nullptr ? std::nullopt : view.recording->state(camera.id, stream.id);
    return {{"camera", camera.id},
            {"stream", stream.id},
            {"path", "orv/live/" + std::to_string(camera.id) + "/" + std::to_string(stream.id)},
            {"state", nameOf(status.state)},
            {"since", status.starts == 0 ? Json() : Json(JsonDocument::time(status.since))},
            {"needed", source != nullptr && source->isNeeded()},
            {"record", nameOf(stream.record)},
            {"recording", recording && recording->recording},
            {"video", codecName(stream.videoCodec)},
            {"audio", codecName(stream.audioCodec)},
            {"starts", status.starts},
            {"failures", status.failures},
            {"lastError", status.lastError.empty() ? Json() : Json(status.lastError)},
            {"lastErrorAt", status.lastErrorAt ? Json(JsonDocument::time(*status.lastErrorAt)) : Json()}};
}

Json streamsOf(const ServerView& view, const CameraConfig& camera)
{
    Json streams = Json::array();
    for (const StreamConfig& stream : camera.streams)
    {
        streams.push_back(documentOf(view, camera, stream));
    }
    return streams;
}

HttpReply cameras(const ServerView& view, const HttpRequest& request)
{
    const auto config = view.config();
    const auto rules = view.access->rules();
    Json all = Json::array();
    for (const CameraConfig& camera : config->cameras)
    {
        if (!view.shows(request.user, camera.id))
        {
            continue;
        }
        Json rights = Json::array();
        for (const Right right : allRights)
        {
            if (rules->allows(request.user, right, camera.id))
            {
                rights.push_back(nameOf(right));
            }
        }
        all.push_back({{"id", camera.id},
                       {"name", camera.name},
                       {"talkBack", codecName(camera.talkBack)},
                       {"rights", std::move(rights)},
                       {"streams", streamsOf(view, camera)}});
    }
    return HttpReply::json(JsonDocument::of({{"cameras", std::move(all)}}));
}

HttpReply streams(const ServerView& view, const HttpRequest& request)
{
    const auto config = view.config();
    Json all = Json::array();
    for (const CameraConfig& camera : config->cameras)
    {
        if (view.shows(request.user, camera.id))
        {
            for (Json& stream : streamsOf(view, camera))
            {
                all.push_back(std::move(stream));
            }
        }
    }
    return HttpReply::json(JsonDocument::of({{"streams", std::move(all)}}));
}

HttpReply restart(const ServerView& view, const HttpRequest& request)
{
    const auto id = parseDecimal<int>(request.part("camera"), CameraSet::maxId);
    const auto config = view.config();
    const auto found = std::find_if(config->cameras.begin(), config->cameras.end(),
                                    [id](const CameraConfig& camera) { return id && camera.id == *id; });
    const auto all = Device::streams();
    if (found == config->cameras.end() || all == nullptr)
    {
        return HttpReply::problem(notFound, "There is no such camera.");
    }
    int count = 0;
    for (const StreamConfig& stream : found->streams)
    {
        const auto source = all->find(found->id, stream.id);
        if (source != nullptr && source->isNeeded())
        {
            source->restart();
            ++count;
        }
    }
    Log::info("camera {}: {} asked over HTTP to start it again", found->id,
              request.user.empty() ? request.peer.text() : "user \"" + Log::safe(request.user) + "\"");
    return HttpReply::json(JsonDocument::of({{"restarted", count}}), accepted);
}

}  // namespace

void CameraRoutes::add(HttpRouter& router, const ServerView& view)
{
    router.add({"GET", "/api/v1/cameras", HttpAccess::shared(),
                [view](const HttpRequest& request) { return cameras(view, request); }});
    router.add({"GET", "/api/v1/streams", HttpAccess::shared(),
                [view](const HttpRequest& request) { return streams(view, request); }});
    router.add({"POST", "/api/v1/cameras/{camera}/restart", HttpAccess::camera(Right::admin),
                [view](const HttpRequest& request) { return restart(view, request); }});
}

}  // namespace refhost
