#include "refhost/http/RecordingRoutes.h"

#include <algorithm>
#include <chrono>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "refhost/base/Decimal.h"
#include "refhost/config/CameraSet.h"
#include "refhost/http/JsonDocument.h"
#include "refhost/media/Device.h"
#include "refhost/recording/RecordingIndex.h"

namespace refhost
{
namespace
{

using Json = nlohmann::ordered_json;

constexpr int badRequest = 400;
constexpr int unavailable = 503;

struct Question
{
    std::optional<int> camera;
    WallTime start = WallTime::min();
    WallTime end = WallTime::max();
};

/// \returns why the request is wrong; empty when it is not
std::string read(const HttpRequest& request, Question& out)
{
    if (const auto camera = request.target.parameter("camera"))
    {
        out.camera = parseDecimal<int>(*camera, CameraSet::maxId);
        if (!out.camera)
        {
            return "camera must be the number of a camera.";
        }
    }
    for (const auto& [name, time] : {std::pair("start", &out.start), std::pair("end", &out.end)})
    {
        if (const auto text = request.target.parameter(name))
        {
            const auto parsed = JsonDocument::timeOf(*text);
            if (!parsed)
            {
                return std::string(name) +
                       " must be a time such as 2026-03-01T12:00:00Z, or seconds since 1970.";
            }
            *time = *parsed;
        }
    }
    return out.start < out.end ? "" : "start must be before end.";
}

void addRanges(const std::vector<RecordedInterval>& all, const Question& question, Json& ranges, Json& gaps,
               std::optional<WallTime>& next)
{
    std::optional<WallTime> before;
    for (const RecordedInterval& interval : all)
    {
        if (interval.end <= question.start || interval.begin >= question.end)
        {
            continue;
        }
        if (ranges.size() == RecordingRoutes::maxRanges)
        {
            next = interval.begin;
            return;
        }
        if (before && *before < interval.begin)
        {
            gaps.push_back({{"start", JsonDocument::time(*before)},
                            {"end", JsonDocument::time(interval.begin)},
                            {"seconds", std::chrono::duration<double>(interval.begin - *before).count()}});
        }
        before = std::max(before.value_or(interval.end), interval.end);
        ranges.push_back({{"start", JsonDocument::time(interval.begin)},
                          {"end", JsonDocument::time(interval.end)},
                          {"seconds", std::chrono::duration<double>(interval.end - interval.begin).count()},
                          {"growing", interval.growing}});
    }
}

HttpReply list(const ServerView& view, const HttpRequest& request)
{
    Question question;
    if (const std::string problem = read(request, question); !problem.empty())
    {
        return HttpReply::problem(badRequest, problem);
    }
    const auto index = Device::recordings();
    if (index == nullptr && Device::recordingsExpected())
    {
        HttpReply later = HttpReply::problem(unavailable, "The recordings are being opened.");
        later.with("Retry-After", "5");
        return later;
    }
    Json recordings = Json::array();
    const auto rules = view.access->rules();
    for (const RecordedStream& stream : index == nullptr ? std::vector<RecordedStream>() : index->streams())
    {
        if ((question.camera && stream.cameraId != *question.camera) ||
            !rules->allows(request.user, Right::playback, stream.cameraId))
        {
            continue;
        }
        Json ranges = Json::array();
        Json gaps = Json::array();
        std::optional<WallTime> next;
        addRanges(index->recordings(stream.cameraId, stream.streamId), question, ranges, gaps, next);
        recordings.push_back({{"camera", stream.cameraId},
                              {"stream", stream.streamId},
                              {"cameraBytes", index->bytesOf(stream.cameraId)},
                              {"ranges", std::move(ranges)},
                              {"gaps", std::move(gaps)},
                              {"next", next ? Json(JsonDocument::time(*next)) : Json()}});
    }
    return HttpReply::json(JsonDocument::of(
        {{"complete", index == nullptr || index->isComplete()}, {"recordings", std::move(recordings)}}));
}

}  // namespace

void RecordingRoutes::add(HttpRouter& router, const ServerView& view)
{
    router.add({"GET", "/api/v1/recordings", HttpAccess::shared(),
                [view](const HttpRequest& request) { return list(view, request); }, true});
}

}  // namespace refhost
