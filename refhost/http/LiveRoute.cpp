#include "refhost/http/LiveRoute.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

#include "refhost/base/Decimal.h"
#include "refhost/fragments/FragmentWriter.h"
#include "refhost/http/JsonDocument.h"
#include "refhost/net/websocket/WebSocketFrames.h"
#include "refhost/net/websocket/WebSocketHandshake.h"

namespace refhost
{
namespace
{

using Json = nlohmann::ordered_json;

constexpr int badRequest = 400;
constexpr int forbidden = 403;
constexpr int notFound = 404;
constexpr int upgradeRequired = 426;
/// Fragments from one look at a viewer's rights to the next.
constexpr std::uint64_t checkInterval = 16;

Json describe(const MediaFormat& format, std::uint32_t track)
{
    Json text{
        {"track", track}, {"timescale", FragmentWriter::timescale}, {"codec", infoOf(format.codec).name}};
    if (isVideo(format.codec))
    {
        text["width"] = format.width;
        text["height"] = format.height;
    }
    return text;
}

std::string_view textOf(const std::vector<std::uint8_t>& bytes)
{
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

/// The WebSocket's end of a stream.
class LiveSocket final : public BodySource
{
public:
    /// Whether the viewer may go on.
    using Permitted = std::function<bool()>;

    LiveSocket(std::shared_ptr<TappedStream> stream, bool audio, Permitted permitted)
        : stream_(std::move(stream)), audio_(audio), permitted_(std::move(permitted))
    {
    }

    void start(std::function<void()> wake) override
    {
        viewer_ = std::make_unique<FragmentViewer>(stream_, audio_, std::move(wake));
    }

    void receive(std::string_view bytes) override
    {
        std::string ignored;
        frames_.read(bytes, ignored, answers_);
    }

    State read(std::size_t room, std::string& out) override
    {
        out += std::exchange(answers_, {});
        if (!frames_.reads() || !frames_.sends())
        {
            return State::ended;
        }
        while (out.size() < room)
        {
            const FragmentStream::Next next = viewer_->read();
            if (next.description)
            {
                addDescription(*next.description, out);
            }
            else if (next.fragment != nullptr)
            {
                if (++fragments_ % checkInterval == 0 && !permitted_())
                {
                    frames_.close(WebSocketFrames::End::goingAway, out);
                    return State::ended;
                }
                WebSocketFrames::append(textOf(*next.fragment), out);
            }
            else
            {
                return State::waiting;
            }
        }
        return State::more;
    }

private:
    static void addDescription(const FragmentStream::Description& description, std::string& out)
    {
        const MediaFormat* const video = description.video.get();
        const MediaFormat* const audio = description.audio.get();
        Json text{{"type", "description"}, {"mime", FragmentWriter::mimeType(video, audio)}};
        text["video"] = video == nullptr ? Json() : describe(*video, FragmentWriter::videoTrack);
        text["audio"] = audio == nullptr ? Json() : describe(*audio, FragmentWriter::audioTrack);
        WebSocketFrames::append(JsonDocument::of(text), out, WebSocketFrames::Kind::text);
        WebSocketFrames::append(textOf(FragmentWriter::init(video, audio)), out);
    }

    const std::shared_ptr<TappedStream> stream_;
    const bool audio_;
    const Permitted permitted_;
    std::uint64_t fragments_ = 0;
    WebSocketFrames frames_;
    std::string answers_;
    std::unique_ptr<FragmentViewer> viewer_;
};

HttpReply live(const HttpRequest& request, const AccessControl& access,
               const std::shared_ptr<FragmentStreams>& streams)
{
    const auto camera = parseDecimal<int>(request.part("camera"));
    const auto stream = parseDecimal<int>(request.part("stream"));
    const auto tapped = camera && stream ? streams->find(*camera, *stream) : nullptr;
    if (tapped == nullptr)
    {
        return HttpReply::problem(notFound, "There is no such stream.");
    }
    switch (WebSocketHandshake::check(request.head))
    {
        case WebSocketHandshake::Check::noHandshake:
        {
            HttpReply reply = HttpReply::problem(upgradeRequired, "Live media are sent through a WebSocket.");
            reply.with("Upgrade", "websocket").with("Sec-WebSocket-Version", "13");
            return reply;
        }
        case WebSocketHandshake::Check::otherVersion:
        {
            HttpReply reply = HttpReply::problem(badRequest, "Only version 13 of WebSocket is spoken here.");
            reply.with("Sec-WebSocket-Version", "13");
            return reply;
        }
        case WebSocketHandshake::Check::good:
            break;
    }
    if (!WebSocketHandshake::isSameHost(request.head))
    {
        return HttpReply::problem(forbidden, "A page of another site may not show this stream.");
    }
    const bool audio = request.target.parameter("audio").value_or("1") != "0";
    const auto permitted = [&access, streams, tapped, user = request.user, camera = *camera, stream = *stream]
    { return access.rules()->allows(user, Right::live, camera) && streams->find(camera, stream) == tapped; };
    return HttpReply::webSocket(WebSocketHandshake::accept(request.head),
                                std::make_shared<LiveSocket>(tapped, audio, permitted));
}

}  // namespace

void LiveRoute::add(HttpRouter& router, const AccessControl& access, std::shared_ptr<FragmentStreams> streams)
{
    router.add({"GET", "/api/v1/cameras/{camera}/streams/{stream}/live", HttpAccess::camera(Right::live),
                [&access, streams = std::move(streams)](const HttpRequest& request)
                { return live(request, access, streams); }});
}

}  // namespace refhost
