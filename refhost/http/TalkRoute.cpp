#include "refhost/http/TalkRoute.h"

#include <algorithm>
#include <cstdint>
#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <utility>

#include "refhost/base/Decimal.h"
#include "refhost/base/HostStatus.h"
#include "refhost/http/JsonDocument.h"
#include "refhost/http/WebSocketReply.h"
#include "refhost/media/Device.h"
#include "refhost/net/websocket/WebSocketFrames.h"
#include "refhost/talkback/PlainTalk.h"

namespace refhost
{
namespace
{

using Json = nlohmann::ordered_json;

constexpr int notFound = 404;
/// A microphone's clock may be fast, but not by a tenth.
constexpr std::int64_t maxBytesPerSecond = PlainTalk::sampleRate * 11 / 10;
/// Receptions from one look at the right to the next.
constexpr unsigned checkInterval = 16;

/// How far a client's audio is ahead of the time.
class Pace
{
public:
    explicit Pace(MonotonicTime now) : last_(now) {}

    /// \returns false when it is too far ahead
    bool add(std::size_t bytes, MonotonicTime now)
    {
        using Seconds = std::chrono::duration<double>;
        const double passed = std::chrono::duration_cast<Seconds>(now - last_).count();
        last_ = now;
        ahead_ = std::max(0.0, ahead_ - passed * static_cast<double>(maxBytesPerSecond)) +
                 static_cast<double>(bytes);
        return ahead_ <= static_cast<double>(TalkRoute::maxAhead);
    }

private:
    MonotonicTime last_;
    double ahead_ = 0;  // bytes
};

/// The WebSocket's end of a talk-back session.
class TalkSocket final : public BodySource
{
public:
    /// Whether the client may go on.
    using Permitted = std::function<bool()>;

    TalkSocket(const PlainTalk::Client& client, const HostClock& clock, Permitted permitted)
        : talk_(std::make_unique<PlainTalk>(client)),
          clock_(clock),
          permitted_(std::move(permitted)),
          pace_(clock.now()),
          lastAudio_(clock.now())
    {
    }

    void start(std::function<void()> /*wake*/) override
    {
        const int status = talk_->start();
        if (status == 0)
        {
            showFloor();
            return;
        }
        const bool busy = status == hostTalkBackBusy;
        say({{"type", "refused"},
             {"detail", busy ? "Somebody else talks, or too many do." : "There is no talk-back now."}});
        frames_.close(WebSocketFrames::End::tryAgainLater, unsent_);
    }

    void receive(std::string_view bytes) override
    {
        if (!goesOn())
        {
            return;
        }
        std::string audio;
        frames_.read(bytes, audio, unsent_);
        const MonotonicTime now = clock_.now();
        const bool checks = ++receptions_ % checkInterval == 0;
        if (!audio.empty())
        {
            lastAudio_ = now;
            if (!pace_.add(audio.size(), now))
            {
                frames_.close(WebSocketFrames::End::policyViolation, unsent_);
                return;
            }
            talk_->send(audio);
        }
        if (goesOn() && checks)
        {
            check(now);
        }
        showFloor();
    }

    State read(std::size_t /*room*/, std::string& out) override
    {
        if (goesOn())
        {
            check(clock_.now());
        }
        out += std::exchange(unsent_, {});
        return goesOn() ? State::waiting : State::ended;
    }

private:
    bool goesOn() const
    {
        return frames_.reads() && frames_.sends();
    }

    /// Ends it where it may not go on.
    void check(MonotonicTime now)
    {
        if (now - lastAudio_ >= TalkRoute::maxSilence || !talk_->isOpen() || !permitted_())
        {
            frames_.close(WebSocketFrames::End::goingAway, unsent_);
        }
    }

    void showFloor()
    {
        PlainTalk::Floor floor = talk_->floor();
        if (goesOn() && (!reported_ || !(*reported_ == floor)))
        {
            say({{"type", "floor"},
                 {"audible", floor.audible},
                 {"by", floor.by.empty() ? Json() : Json(floor.by)}});
            reported_ = std::move(floor);
        }
    }

    void say(const Json& message)
    {
        WebSocketFrames::append(JsonDocument::of(message), unsent_, WebSocketFrames::Kind::text);
    }

    const std::unique_ptr<PlainTalk> talk_;
    const HostClock& clock_;
    const Permitted permitted_;
    Pace pace_;
    MonotonicTime lastAudio_;
    unsigned receptions_ = 0;
    WebSocketFrames frames_{WebSocketFrames::Accepts::binary};
    std::string unsent_;
    std::optional<PlainTalk::Floor> reported_;
};

bool offersTalkBack(int camera)
{
    const auto streams = Device::streams();
    SubMediaInfo track;
    return streams != nullptr && streams->describeBackChannel(camera, track);
}

HttpReply talk(const HttpRequest& request, const AccessControl& access, const HostClock& clock)
{
    const auto camera = parseDecimal<int>(request.part("camera"));
    if (!camera || !offersTalkBack(*camera))
    {
        return HttpReply::problem(notFound, "There is no such camera with talk-back.");
    }
    const auto permitted = [&access, user = request.user, camera = *camera,
                            stillLoggedIn = request.stillLoggedIn] {
        return stillLoggedIn() && access.rules()->allows(user, Right::talk, camera) && offersTalkBack(camera);
    };
    return WebSocketReply::to(
        request.head,
        [&]
        {
            const PlainTalk::Client client{request.peer, request.user, request.head.target};
            return std::make_shared<TalkSocket>(client, clock, permitted);
        });
}

}  // namespace

void TalkRoute::add(HttpRouter& router, const AccessControl& access, const HostClock& clock)
{
    router.add({"GET", "/api/v1/cameras/{camera}/talk", HttpAccess::camera(Right::talk),
                [&access, &clock](const HttpRequest& request) { return talk(request, access, clock); }});
}

}  // namespace refhost
