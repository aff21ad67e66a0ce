#include "refhost/http/HlsRoutes.h"

#include <fmt/format.h>

#include <algorithm>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "refhost/base/Decimal.h"
#include "refhost/config/CameraSet.h"

namespace refhost
{
namespace
{

constexpr int badRequest = 400;
constexpr int notFound = 404;
constexpr int unavailable = 503;
constexpr const char* playlistType = "application/vnd.apple.mpegurl";
/// Seconds that caches keep a file that never changes, longer than any player asks for it.
constexpr int fileAge = 3600;
/// Target durations that they keep a playlist which a query names (draft-pantos-hls-rfc8216bis, appendix B.1).
constexpr int namedTargets = 6;

/// Bytes that others share, one block after the other.
class SharedBody final : public BodySource
{
public:
    explicit SharedBody(std::vector<FragmentStream::Bytes> blocks) : blocks_(std::move(blocks)) {}

    void start(std::function<void()> /*wake*/) override {}

    State read(std::size_t room, std::string& out) override
    {
        while (next_ < blocks_.size() && out.size() < room)
        {
            const std::vector<std::uint8_t>& block = *blocks_[next_];
            const std::size_t count = std::min(block.size() - taken_, room - out.size());
            out.append(reinterpret_cast<const char*>(block.data()) + taken_, count);
            taken_ += count;
            if (taken_ == block.size())
            {
                blocks_[next_++].reset();
                taken_ = 0;
            }
        }
        return next_ < blocks_.size() ? State::more : State::ended;
    }

private:
    std::vector<FragmentStream::Bytes> blocks_;
    std::size_t next_ = 0;
    std::size_t taken_ = 0;  // of it
};

std::string cacheControl(bool isPrivate, int seconds, bool immutable)
{
    return fmt::format("{}, max-age={}{}", isPrivate ? "private" : "public", seconds,
                       immutable ? ", immutable" : "");
}

HttpReply fileReply(const HlsFound& found, bool isPrivate)
{
    std::uint64_t length = 0;
    for (const FragmentStream::Bytes& block : found.bytes)
    {
        length += block->size();
    }
    HttpReply reply = HttpReply::stream("video/mp4", std::make_shared<SharedBody>(found.bytes), length);
    reply.with("Cache-Control", cacheControl(isPrivate, fileAge, true));
    return reply;
}

HttpReply playlistReply(const HlsFound& found, bool named, bool isPrivate)
{
    HttpReply reply = HttpReply::of(playlistType, "");
    reply.shared = found.text;
    reply.with(
        "Cache-Control",
        cacheControl(isPrivate, named ? namedTargets * found.target : std::max(found.target / 2, 1), false));
    return reply;
}

HttpReply replyTo(const HlsQuery& query, const HlsFound& found, bool isPrivate)
{
    switch (found.state)
    {
        case HlsFound::State::there:
            return query.kind == HlsQuery::Kind::file
                       ? fileReply(found, isPrivate)
                       : playlistReply(found, query.segment.has_value(), isPrivate);
        case HlsFound::State::awaited:
            return HttpReply::problem(unavailable, "This did not come in time, or too many wait for it.")
                .with("Retry-After", "1");
        case HlsFound::State::invalid:
            return HttpReply::problem(badRequest, "No playlist names what this asks for.");
        case HlsFound::State::absent:
            break;
    }
    return HttpReply::problem(notFound, "There is no such file, or not any more.");
}

/// \returns false when the parameter is no number
bool readParameter(const HttpRequest& request, const char* name, std::optional<std::uint64_t>& out)
{
    const auto text = request.target.parameter(name);
    out = text ? parseDecimal<std::uint64_t>(*text) : std::nullopt;
    return !text || out;
}

void answer(const HttpRequest& request, HlsQuery query, HlsStreams& streams,
            const HttpRouter::Respond& respond)
{
    if (query.kind == HlsQuery::Kind::playlist && (!readParameter(request, "_HLS_msn", query.segment) ||
                                                   !readParameter(request, "_HLS_part", query.part)))
    {
        respond(HttpReply::problem(badRequest, "_HLS_msn and _HLS_part are numbers."));
        return;
    }
    query.name = request.part("file");
    const auto camera = parseDecimal<int>(request.part("camera"), CameraSet::maxId);
    const auto number = parseDecimal<int>(request.part("stream"), CameraSet::maxId);
    const auto stream = camera && number ? streams.find(*camera, *number) : nullptr;
    if (stream == nullptr)
    {
        respond(HttpReply::problem(notFound, "There is no such stream."));
        return;
    }
    const bool isPrivate = !request.user.empty();
    stream->ask(query, request.cancelled,
                [query, isPrivate, respond](const HlsFound& found)
                { respond(replyTo(query, found, isPrivate)); });
}

}  // namespace

void HlsRoutes::add(HttpRouter& router, std::shared_ptr<HlsStreams> streams)
{
    const auto add = [&](const char* file, HlsQuery::Kind kind)
    {
        HttpRouter::Route route{"GET", std::string("/api/v1/cameras/{camera}/streams/{stream}/hls/") + file,
                                HttpAccess::camera(Right::live), nullptr};
        HlsQuery query;
        query.kind = kind;
        route.later = [streams, query](const HttpRequest& request, const HttpRouter::Respond& respond)
        { answer(request, query, *streams, respond); };
        router.add(std::move(route));
    };
    add("index.m3u8", HlsQuery::Kind::multivariant);
    add("live.m3u8", HlsQuery::Kind::playlist);
    add("media/{file}", HlsQuery::Kind::file);
}

}  // namespace refhost
