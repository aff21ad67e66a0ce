#include "refhost/http/RecordingRoutes.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "refhost/base/Decimal.h"
#include "refhost/base/Log.h"
#include "refhost/config/CameraSet.h"
#include "refhost/http/JsonDocument.h"
#include "refhost/media/Device.h"
#include "refhost/recording/RecordingIndex.h"

namespace refhost
{
namespace
{

using Json = nlohmann::ordered_json;

constexpr int ok = 200;
constexpr int accepted = 202;
constexpr int badRequest = 400;
constexpr int notFound = 404;
constexpr int conflict = 409;
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

using Switch = RecordingControl::Switch;

constexpr std::array<std::pair<Switch, std::string_view>, 3> switches{
    {{Switch::automatic, "auto"}, {Switch::on, "on"}, {Switch::off, "off"}}};

std::optional<CameraConfig> cameraOf(const ServerView& view, const HttpRequest& request)
{
    const auto id = parseDecimal<int>(request.part("camera"), CameraSet::maxId);
    const auto config = view.config();
    const auto found = std::find_if(config->cameras.begin(), config->cameras.end(),
                                    [id](const CameraConfig& camera) { return id && camera.id == *id; });
    return found == config->cameras.end() || view.recording == nullptr ? std::nullopt
                                                                       : std::make_optional(*found);
}

std::string who(const HttpRequest& request)
{
    return request.user.empty() ? request.peer.text() : "user \"" + Log::safe(request.user) + "\"";
}

HttpReply noCamera()
{
    return HttpReply::problem(notFound, "There is no such camera.");
}

HttpReply stateOf(const ServerView& view, const CameraConfig& camera, int status)
{
    Json streams = Json::array();
    for (const StreamConfig& stream : camera.streams)
    {
        const auto state = view.recording->state(camera.id, stream.id);
        streams.push_back(
            {{"stream", stream.id},
             {"record", nameOf(stream.record)},
             {"recording", state && state->recording},
             {"until", state && state->until ? Json(JsonDocument::time(*state->until)) : Json()}});
    }
    const Switch position = view.recording->switchOf(camera.id);
    const auto* const name = std::find_if(switches.begin(), switches.end(),
                                          [&](const auto& each) { return each.first == position; });
    return HttpReply::json(
        JsonDocument::of(
            {{"camera", camera.id}, {"recording", name->second}, {"streams", std::move(streams)}}),
        status);
}

HttpReply showSwitch(const ServerView& view, const HttpRequest& request)
{
    const auto camera = cameraOf(view, request);
    return camera ? stateOf(view, *camera, ok) : noCamera();
}

HttpReply setSwitch(const ServerView& view, const HttpRequest& request)
{
    const auto camera = cameraOf(view, request);
    if (!camera)
    {
        return noCamera();
    }
    const Json body = Json::parse(request.body, nullptr, false);
    const bool named = body.is_object() && body.size() == 1 && body.contains("recording");
    const auto* const found =
        std::find_if(switches.begin(), switches.end(),
                     [&](const auto& each) { return named && body.at("recording") == each.second; });
    if (found == switches.end())
    {
        return HttpReply::problem(
            badRequest,
            R"(The body must be {"recording": "on"}, {"recording": "off"} or {"recording": "auto"}.)");
    }
    const bool recorded = std::any_of(camera->streams.begin(), camera->streams.end(),
                                      [](const StreamConfig& stream) { return stream.isRecorded(); });
    if (!recorded)
    {
        return HttpReply::problem(conflict, "Every stream of the camera has record = \"never\".");
    }
    view.recording->setSwitch(camera->id, found->first);
    Log::info("camera {}: {} set recording to {} over HTTP", camera->id, who(request), found->second);
    return stateOf(view, *camera, accepted);
}

/// \returns false when it is wrong
bool readPostRoll(const HttpRequest& request, std::optional<Duration>& out)
{
    if (request.body.empty())
    {
        return true;
    }
    const Json body = Json::parse(request.body, nullptr, false);
    if (!body.is_object() || body.size() != body.count("postRoll"))
    {
        return false;
    }
    if (body.empty())
    {
        return true;
    }
    const Json& seconds = body.at("postRoll");
    if (!seconds.is_number_integer() || seconds < 1 || seconds > RecordingRoutes::maxPostRoll)
    {
        return false;
    }
    out = std::chrono::seconds(seconds.get<int>());
    return true;
}

HttpReply noteEvent(const ServerView& view, const HttpRequest& request)
{
    const auto camera = cameraOf(view, request);
    if (!camera)
    {
        return noCamera();
    }
    std::optional<Duration> postRoll;
    if (!readPostRoll(request, postRoll))
    {
        return HttpReply::problem(badRequest,
                                  R"(The body must be empty or {"postRoll": SECONDS}, from 1 to 3600.)");
    }
    const Switch position = view.recording->switchOf(camera->id);
    const bool recorded =
        std::any_of(camera->streams.begin(), camera->streams.end(),
                    [&](const StreamConfig& stream)
                    { return RecordingControl::modeOf(position, stream.record) != RecordMode::never; });
    if (!recorded)
    {
        return HttpReply::problem(conflict, position == Switch::off
                                                ? "Recording of the camera is switched off."
                                                : "Every stream of the camera has record = \"never\".");
    }
    if (view.recording->noteEvent(camera->id, postRoll).empty())
    {
        HttpReply later = HttpReply::problem(unavailable, "Nothing can be recorded now: the log says why.");
        later.with("Retry-After", "10");
        return later;
    }
    Log::debug("camera {}: an event by {} over HTTP", camera->id, who(request));
    return stateOf(view, *camera, accepted);
}

}  // namespace

void RecordingRoutes::add(HttpRouter& router, const ServerView& view)
{
    router.add({"GET", "/api/v1/recordings", HttpAccess::shared(),
                [view](const HttpRequest& request) { return list(view, request); }, true});
    router.add({"GET", "/api/v1/cameras/{camera}/recording", HttpAccess::camera(Right::admin),
                [view](const HttpRequest& request) { return showSwitch(view, request); }});
    router.add({"PUT", "/api/v1/cameras/{camera}/recording", HttpAccess::camera(Right::admin),
                [view](const HttpRequest& request) { return setSwitch(view, request); }});
    router.add({"POST", "/api/v1/cameras/{camera}/events", HttpAccess::camera(Right::admin),
                [view](const HttpRequest& request) { return noteEvent(view, request); }});
}

}  // namespace refhost
