#include "refhost/http/HealthRoutes.h"

#include <cstddef>
#include <nlohmann/json.hpp>
#include <utility>

#include "refhost/http/JsonDocument.h"
#include "refhost/media/Device.h"
#include "refhost/media/StreamSource.h"

namespace refhost
{
namespace
{

using Json = nlohmann::ordered_json;

constexpr int ok = 200;
constexpr int unavailable = 503;

/// A stream must run while it is recorded or somebody watches it.
bool mustRun(const ServerView& view, const CameraConfig& camera, const StreamConfig& stream,
             const StreamSource* source)
{
    const bool off =
        view.recording != nullptr && view.recording->switchOf(camera.id) == RecordingControl::Switch::off;
    return (stream.isRecorded() && !off) || (source != nullptr && source->isNeeded());
}

HttpReply readiness(const ServerView& view, const HttpRequest& request)
{
    const auto config = view.config();
    const auto streams = Device::streams();
    Json waiting = Json::array();
    std::size_t count = 0;
    for (const CameraConfig& camera : config->cameras)
    {
        for (const StreamConfig& stream : camera.streams)
        {
            const auto source = streams == nullptr ? nullptr : streams->find(camera.id, stream.id);
            const auto status = view.cameras->find(camera.id, stream.id);
            const CameraState state = status ? status->state : CameraState::idle;
            if (!mustRun(view, camera, stream, source.get()) || state == CameraState::running)
            {
                continue;
            }
            ++count;
            if (view.shows(request.user, camera.id))
            {
                waiting.push_back({{"camera", camera.id},
                                   {"stream", stream.id},
                                   {"name", camera.streamName(stream.id)},
                                   {"state", nameOf(state)}});
            }
        }
    }
    const Json document{{"ready", count == 0}, {"waitingFor", count}, {"streams", std::move(waiting)}};
    return HttpReply::json(JsonDocument::of(document), count == 0 ? ok : unavailable);
}

}  // namespace

void HealthRoutes::add(HttpRouter& router, const ServerView& view)
{
    router.add({"GET", "/healthz", HttpAccess::open(),
                [](const HttpRequest&) { return HttpReply::json("{\"status\":\"ok\"}\n"); }});
    router.add({"GET", "/readyz", HttpAccess::open(),
                [view](const HttpRequest& request) { return readiness(view, request); }});
}

}  // namespace refhost
