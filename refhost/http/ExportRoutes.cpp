#include "refhost/http/ExportRoutes.h"

#include <fmt/format.h>

#include <algorithm>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

#include "refhost/base/Decimal.h"
#include "refhost/base/Log.h"
#include "refhost/config/CameraSet.h"
#include "refhost/export/InstantText.h"
#include "refhost/export/Mp4Export.h"
#include "refhost/http/BackgroundBody.h"
#include "refhost/http/ByteRange.h"
#include "refhost/http/Places.h"

namespace refhost
{
namespace
{

constexpr int badRequest = 400;
constexpr int notFound = 404;
constexpr int tooLarge = 413;
constexpr int rangeNotSatisfiable = 416;
constexpr int partial = 206;
constexpr int notModified = 304;
constexpr int unavailable = 503;

class ExportProducer : public BodyProducer
{
public:
    ExportProducer(std::unique_ptr<Mp4Export> source, const ByteRange& range, Places::Place place)
        : source_(std::move(source)), at_(range.first), left_(range.count), place_(std::move(place))
    {
    }

    bool produce(std::string& out) override
    {
        constexpr std::uint64_t blockSize = 65536;
        const auto count = static_cast<std::size_t>(std::min(left_, blockSize));
        const std::size_t before = out.size();
        out.resize(before + count);
        std::string error;
        const auto got =
            source_->read(at_, reinterpret_cast<std::uint8_t*>(out.data()) + before, count, error);
        if (!got || *got != count)
        {
            throw std::runtime_error("an export ends early: " + error);
        }
        at_ += count;
        left_ -= count;
        return left_ > 0;
    }

private:
    std::unique_ptr<Mp4Export> source_;
    std::uint64_t at_;
    std::uint64_t left_;
    Places::Place place_;
};

/// \returns nothing, or the reply that says what is wrong
std::optional<HttpReply> read(const HttpRequest& request, ExportPlan::Request& out)
{
    const auto camera = parseDecimal<int>(request.part("camera"), CameraSet::maxId);
    if (!camera)
    {
        return HttpReply::problem(notFound, "There is no such camera.");
    }
    out.cameraId = *camera;
    for (const bool start : {true, false})
    {
        const char* const name = start ? "start" : "end";
        const auto text = request.target.parameter(name);
        const auto time = text ? InstantText::parse(*text) : std::nullopt;
        if (!time)
        {
            return HttpReply::problem(
                badRequest, fmt::format("The parameter {} must be seconds since 1970, or a time such as "
                                        "2026-01-31T12:00:00.5Z.",
                                        name));
        }
        (start ? out.begin : out.end) = *time;
    }
    if (const auto stream = request.target.parameter("stream"))
    {
        out.streamId = parseDecimal<int>(*stream, CameraSet::maxId);
        if (!out.streamId)
        {
            return HttpReply::problem(badRequest, "The parameter stream must be the number of a stream.");
        }
    }
    return std::nullopt;
}

HttpReply refusal(ExportPlan::Problem problem, std::string reason)
{
    if (!reason.empty() && reason.front() >= 'a' && reason.front() <= 'z')
    {
        reason.front() = static_cast<char>(reason.front() - 'a' + 'A');
    }
    reason += '.';
    switch (problem)
    {
        case ExportPlan::Problem::interval:
            return HttpReply::problem(badRequest, reason);
        case ExportPlan::Problem::tooLarge:
            return HttpReply::problem(tooLarge, reason);
        case ExportPlan::Problem::notReady:
            return HttpReply::problem(unavailable, reason).with("Retry-After", "5");
        default:
            return HttpReply::problem(notFound, reason);
    }
}

/// Whether a list of entity tags names one (RFC 9110, section 13.1.2); a weak one counts as the same.
bool names(std::string_view list, std::string_view tag)
{
    return list == "*" || list.find(tag) != std::string_view::npos;
}

HttpReply reply(const HttpRequest& request, const ExportPlan::Request& interval,
                std::unique_ptr<Mp4Export> source, BackgroundWork& work, Places::Place place)
{
    const std::uint64_t size = source->size();
    const std::string tag = '"' + source->tag() + '"';
    const auto described = [&tag](HttpReply made)
    {
        return std::move(
            made.with("ETag", tag).with("Accept-Ranges", "bytes").with("Cache-Control", "private, no-cache"));
    };
    if (names(request.head.field("If-None-Match"), tag))
    {
        return described(HttpReply::empty(notModified));
    }
    const std::string_view condition = request.head.field("If-Range");
    const ByteRange range = condition.empty() || condition == tag
                                ? ByteRange::parse(request.head.field("Range"), size)
                                : ByteRange{ByteRange::Kind::whole, 0, size};
    if (range.kind == ByteRange::Kind::unsatisfiable)
    {
        return described(HttpReply::problem(rangeNotSatisfiable, "The file ends before that range.")
                             .with("Content-Range", fmt::format("bytes */{}", size)));
    }
    BackgroundWork::Permit permit = work.admit();
    if (permit == nullptr)
    {
        return HttpReply::problem(unavailable, "The server has too much to do.").with("Retry-After", "5");
    }
    auto producer = std::make_unique<ExportProducer>(std::move(source), range, std::move(place));
    HttpReply made = HttpReply::stream(
        "video/mp4", BackgroundBody::make(work, std::move(permit), std::move(producer)), range.count);
    made.with("Content-Disposition",
              fmt::format("attachment; filename=\"camera{}_{}_{}.mp4\"", interval.cameraId,
                          unixSeconds(interval.begin), unixSeconds(interval.end)));
    if (range.kind == ByteRange::Kind::part)
    {
        made.status = partial;
        made.with("Content-Range",
                  fmt::format("bytes {}-{}/{}", range.first, range.first + range.count - 1, size));
    }
    return described(std::move(made));
}

HttpReply exported(const HttpRequest& request, BackgroundWork& work,
                   const ExportRoutes::Recordings& recordings, Places& places)
{
    ExportPlan::Request interval;
    if (auto problem = read(request, interval))
    {
        return std::move(*problem);
    }
    const auto directory = recordings();
    if (directory == nullptr)
    {
        return HttpReply::problem(notFound, "Nothing is recorded here.");
    }
    Places::Place place = places.take();
    if (place == nullptr)
    {
        return HttpReply::problem(unavailable, "Other exports are running: wait for one of them to end.")
            .with("Retry-After", "10");
    }
    ExportPlan::Problem problem{};
    std::string reason;
    auto source = Mp4Export::open(*directory, interval, problem, reason);
    if (!source)
    {
        return refusal(problem, std::move(reason));
    }
    if (source->leftOut() > 0)
    {
        Log::warning("an export of camera {} lacks {} recordings that cannot be read or have another codec",
                     interval.cameraId, source->leftOut());
    }
    return reply(request, interval, std::move(source), work, std::move(place));
}

}  // namespace

void ExportRoutes::add(HttpRouter& router, BackgroundWork& work, Recordings recordings)
{
    const auto places = std::make_shared<Places>(maxExports);
    HttpRouter::Route route{"GET", "/api/v1/recordings/{camera}/export.mp4",
                            HttpAccess::camera(Right::playback),
                            [&work, recordings = std::move(recordings), places](const HttpRequest& request)
                            { return exported(request, work, recordings, *places); }};
    route.background = true;
    router.add(std::move(route));
}

}  // namespace refhost
