#include "refhost/http/LiveRoute.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "refhost/base/Decimal.h"
#include "refhost/http/Places.h"
#include "refhost/http/RecordedQuery.h"
#include "refhost/http/RecordedSocket.h"
#include "refhost/http/StreamMessages.h"
#include "refhost/http/WebSocketReply.h"
#include "refhost/net/websocket/WebSocketFrames.h"
#include "refhost/net/websocket/WebSocketHandshake.h"

namespace refhost
{
namespace
{

constexpr int badRequest = 400;
constexpr int notFound = 404;
constexpr int unavailable = 503;
/// Fragments from one look at a viewer's rights to the next.
constexpr std::uint64_t checkInterval = 16;

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
        Shared behind;
        const State state = readShared(room, out, behind);
        if (behind != nullptr)
        {
            out.append(behind->begin(), behind->end());
        }
        return state;
    }

    State readShared(std::size_t room, std::string& out, Shared& behind) override
    {
        out += std::exchange(answers_, {});
        if (!frames_.reads() || !frames_.sends())
        {
            return State::ended;
        }
        while (out.size() < room)
        {
            FragmentStream::Next next = viewer_->read();
            if (next.description)
            {
                StreamMessages::addDescription(next.description->video.get(), next.description->audio.get(),
                                               out);
            }
            else if (next.fragment != nullptr)
            {
                if (++fragments_ % checkInterval == 0 && !permitted_())
                {
                    frames_.close(WebSocketFrames::End::goingAway, out);
                    return State::ended;
                }
                WebSocketFrames::appendHead(next.fragment->size(), out);
                behind = std::move(next.fragment);
                return State::more;
            }
            else
            {
                return State::waiting;
            }
        }
        return State::more;
    }

private:
    const std::shared_ptr<TappedStream> stream_;
    const bool audio_;
    const Permitted permitted_;
    std::uint64_t fragments_ = 0;
    WebSocketFrames frames_;
    std::string answers_;
    std::unique_ptr<FragmentViewer> viewer_;
};

/// Whether a stream is there, for the request's camera and stream.
struct Found
{
    int camera = 0;
    int stream = 0;
    std::shared_ptr<TappedStream> tapped;  ///< null: it is not
};

Found find(const HttpRequest& request, FragmentStreams& streams)
{
    const auto camera = parseDecimal<int>(request.part("camera"));
    const auto stream = parseDecimal<int>(request.part("stream"));
    return camera && stream ? Found{*camera, *stream, streams.find(*camera, *stream)} : Found{};
}

}  // namespace

class LiveRoute::Handler
{
public:
    Handler(const AccessControl& access, std::shared_ptr<FragmentStreams> streams, Recorded recorded)
        : access_(access), streams_(std::move(streams)), recorded_(std::move(recorded))
    {
    }

    HttpReply handle(const HttpRequest& request)
    {
        const Found found = find(request, *streams_);
        if (found.tapped == nullptr)
        {
            return HttpReply::problem(notFound, "There is no such stream.");
        }
        if (auto refusal = WebSocketReply::refusal(request.head))
        {
            return std::move(*refusal);
        }
        return request.target.parameter("start") ? recorded(request, found) : live(request, found);
    }

private:
    HttpReply live(const HttpRequest& request, const Found& found)
    {
        const auto permitted = [this, found, user = request.user, stillLoggedIn = request.stillLoggedIn]
        {
            return stillLoggedIn() && access_.rules()->allows(user, Right::live, found.camera) &&
                   streams_->find(found.camera, found.stream) == found.tapped;
        };
        return HttpReply::webSocket(
            WebSocketHandshake::accept(request.head),
            std::make_shared<LiveSocket>(found.tapped, RecordedQuery::wantsAudio(request.target), permitted));
    }

    HttpReply recorded(const HttpRequest& request, const Found& found)
    {
        RecordedSocket::Options options;
        if (const std::string problem = RecordedQuery::read(request.target, options); !problem.empty())
        {
            return HttpReply::problem(badRequest, problem);
        }
        const auto directory = recorded_.recordings();
        if (directory == nullptr)
        {
            return HttpReply::problem(notFound, "Nothing is recorded here.");
        }
        options.place = places_.take();
        if (options.place == nullptr)
        {
            return HttpReply::problem(unavailable, "Too many recordings are being watched.")
                .with("Retry-After", "10");
        }
        options.request.cameraId = found.camera;
        options.request.streamId = found.stream;
        // Another source may take over while the recordings are watched, which are the camera's all the same.
        options.permitted = [this, user = request.user, camera = found.camera, stream = found.stream,
                             stillLoggedIn = request.stillLoggedIn]
        {
            return stillLoggedIn() && access_.rules()->allows(user, Right::playback, camera) &&
                   streams_->find(camera, stream) != nullptr;
        };
        return HttpReply::webSocket(WebSocketHandshake::accept(request.head),
                                    std::make_shared<RecordedSocket>(
                                        recorded_.work, directory, HostClock::system(), std::move(options)));
    }

    const AccessControl& access_;
    const std::shared_ptr<FragmentStreams> streams_;
    const Recorded recorded_;
    Places places_{maxRecorded};
};

void LiveRoute::add(HttpRouter& router, const AccessControl& access, std::shared_ptr<FragmentStreams> streams,
                    Recorded recorded)
{
    const auto handler = std::make_shared<Handler>(access, std::move(streams), std::move(recorded));
    router.add({"GET", "/api/v1/cameras/{camera}/streams/{stream}/live",
                HttpAccess::cameraOr(Right::live, "start", Right::playback),
                [handler](const HttpRequest& request) { return handler->handle(request); }});
}

}  // namespace refhost
