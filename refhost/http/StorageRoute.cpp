#include "refhost/http/StorageRoute.h"

#include <nlohmann/json.hpp>
#include <utility>

#include "refhost/base/DiskSpace.h"
#include "refhost/base/Log.h"
#include "refhost/http/JsonDocument.h"
#include "refhost/media/Device.h"
#include "refhost/recording/RecordingIndex.h"

namespace refhost
{
namespace
{

using Json = nlohmann::ordered_json;

Json sharesOf(const RecordingIndex& index)
{
    Json cameras = Json::array();
    int before = -1;  // streams are ordered by camera
    for (const RecordedStream& stream : index.streams())
    {
        if (stream.cameraId == before)
        {
            continue;
        }
        before = stream.cameraId;
        const auto oldest = index.oldestClosed({}, WallTime::min(), stream.cameraId);
        cameras.push_back({{"camera", stream.cameraId},
                           {"bytes", index.bytesOf(stream.cameraId)},
                           {"oldest", oldest ? Json(JsonDocument::time(oldest->begin)) : Json()}});
    }
    return cameras;
}

HttpReply storage(const ServerView& view)
{
    const auto config = view.config();
    const auto index = Device::recordings();
    const auto disk = DiskSpace::of(config->recording.directory);
    return HttpReply::json(
        JsonDocument::of({{"directory", Log::safe(config->recording.directory)},
                          {"capacity", disk ? Json(disk->capacity) : Json()},
                          {"available", disk ? Json(disk->available) : Json()},
                          {"maxSize", config->recording.maxSize},
                          {"maxAge", config->recording.maxAge},
                          {"bytes", index == nullptr ? 0 : index->totalBytes()},
                          {"cameras", index == nullptr ? Json::array() : sharesOf(*index)}}));
}

}  // namespace

void StorageRoute::add(HttpRouter& router, const ServerView& view)
{
    // It reads the index and asks the disk.
    router.add({"GET", "/api/v1/storage", HttpAccess::server(Right::admin),
                [view](const HttpRequest&) { return storage(view); }, true});
}

}  // namespace refhost
