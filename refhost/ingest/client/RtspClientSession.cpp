#include "refhost/ingest/client/RtspClientSession.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "refhost/base/HostClock.h"
#include "refhost/ingest/client/RtspRefusal.h"

namespace refhost
{
namespace
{

constexpr Duration bodyPause = std::chrono::milliseconds(300);

MonotonicTime now()
{
    return HostClock::system().now();
}

}  // namespace

RtspClientSession::RtspClientSession(EventLoop& loop, StreamConnector& connector, const std::string& url,
                                     const RtspClientOptions& options, RtspClientEvents& events)
    : options_(options.bounded()),
      loop_(loop),
      events_(&events),
      deadlines_(loop, [this] { onDue(); }),
      setUp_(loop, options_, *this)
{
    if (std::optional<CameraUrl> home = CameraUrl::parse(url))
    {
        CameraLink::Events& self = *this;
        link_.emplace(loop, connector, std::move(*home), self);
    }
}

void RtspClientSession::start()
{
    deadlines_.setOwner(weak_from_this());
    if (!link_)
    {
        state_.enter(State::connecting);
        loop_.post(
            [weak = weak_from_this()]
            {
                if (const auto self = weak.lock())
                {
                    self->end(Kind::protocolError, "the camera's URL cannot be read");
                }
            });
        return;
    }
    deadlines_.set(Deadline::open, now() + options_.openTimeout);
    connect();
}

void RtspClientSession::stop(std::function<void()> closed)
{
    events_ = nullptr;
    if (closed)
    {
        whenClosed_.push_back(std::move(closed));
    }
    leave();
}

bool RtspClientSession::sendReport(std::size_t track, const std::uint8_t* data, std::size_t size)
{
    if (!state_.is(State::playing) || size == 0 || size > UINT16_MAX)
    {
        return false;
    }
    const int channel = setUp_.tracks().reportChannelOf(track);
    return channel >= 0 ? link_->sendPacket(channel, data, size)
                        : setUp_.tracks().sendDatagram(track, data, size);
}

void RtspClientSession::connect()
{
    state_.enter(State::connecting);
    deadlines_.clear(Deadline::answer);
    deadlines_.clear(Deadline::body);
    link_->connect(std::min(options_.connectTimeout, deadlines_.at(Deadline::open) - now()),
                   weak_from_this());
}

void RtspClientSession::onConnected()
{
    if (asked_)
    {
        describe();
        return;
    }
    asked_ = true;
    state_.enter(State::asking);
    request("OPTIONS", link_->url().text(), {});
    deadlines_.set(Deadline::answer, now() + std::min(options_.optionsTimeout, options_.answerTimeout));
}

void RtspClientSession::onUnreachable(const std::string& error)
{
    end(Kind::unreachable, error);
}

void RtspClientSession::onClosed(CameraConnection::Ended why, const std::string& error)
{
    const auto self = shared_from_this();
    if (why == CameraConnection::Ended::protocol)
    {
        end(Kind::protocolError, error);
        return;
    }
    if ((state_.is(State::asking) || state_.is(State::describing)) && link_->prepareAgain())
    {
        connect();
        return;
    }
    end(state_.is(State::playing) ? Kind::endedByCamera : Kind::unreachable, error);
}

void RtspClientSession::onOpenBody()
{
    deadlines_.set(Deadline::body, now() + bodyPause);
}

void RtspClientSession::onMessageCame()
{
    deadlines_.clear(Deadline::body);
}

void RtspClientSession::onCongested()
{
    end(Kind::protocolError, "the camera sends and does not read");
}

void RtspClientSession::onCameraRequest(const std::string& method)
{
    if (method == "TEARDOWN" || method == "REDIRECT")
    {
        end(Kind::endedByCamera, fmt::format("the camera ended the session by {}", method));
    }
}

void RtspClientSession::onInterleaved(int channel, const std::uint8_t* data, std::size_t size,
                                      MonotonicTime arrival)
{
    const CameraTracks::Channel& row = setUp_.tracks().channel(channel);
    if (row.used)
    {
        onMedia(row.index, row.reports, data, size, arrival);
    }
}

void RtspClientSession::onMedia(std::size_t track, bool reports, const std::uint8_t* data, std::size_t size,
                                MonotonicTime arrival)
{
    if (events_ == nullptr || (!state_.is(State::playing) && !state_.is(State::starting)))
    {
        return;
    }
    if (reports)
    {
        events_->onReport(track, data, size, arrival);
        return;
    }
    packetCame_ = true;
    if (state_.is(State::playing))
    {
        deadlines_.set(Deadline::media, arrival + options_.silenceTimeout);
    }
    events_->onPacket(track, data, size, arrival);
}

void RtspClientSession::onAnswer(const std::string& method, const CameraMessage& answer)
{
    switch (state_.state())
    {
        case State::asking:
            onOptions(answer);
            return;
        case State::describing:
            onDescription(answer);
            return;
        case State::settingUp:
            onSetUp(answer);
            return;
        case State::starting:
            onPlay(answer);
            return;
        case State::playing:
            onKeepAlive(method, answer);
            return;
        case State::tearingDown:
            if (method == "TEARDOWN")
            {
                close();
            }
            return;
        case State::idle:
        case State::connecting:
        case State::closed:
            return;
    }
}

void RtspClientSession::request(const char* method, const std::string& uri, CameraRequests::Headers headers)
{
    if (!link_->request(method, uri, std::move(headers)))
    {
        onCongested();
        return;
    }
    deadlines_.set(Deadline::answer, now() + options_.answerTimeout);
}

void RtspClientSession::onOptions(const CameraMessage& answer)
{
    if (RtspRefusal::isRedirect(answer.status))
    {
        redirect(answer);
        return;
    }
    // Cameras that refuse OPTIONS are asked for the rest all the same.
    keepAliveMethod_ = keepAliveMethodOf(answer);
    describe();
}

void RtspClientSession::describe()
{
    state_.enter(State::describing);
    request("DESCRIBE", link_->url().text(), {{"Accept", "application/sdp"}});
}

void RtspClientSession::onDescription(const CameraMessage& answer)
{
    if (RtspRefusal::isRedirect(answer.status))
    {
        redirect(answer);
        return;
    }
    if (answer.status != RtspRefusal::ok)
    {
        refuse(RtspRefusal::endOf("DESCRIBE", answer));
        return;
    }
    const std::string_view base = answer.header("content-base");
    const CameraUrl& url = link_->url();
    const CameraDescription description = CameraDescription::read(
        answer.body, url, url.baseTarget(base.empty() ? answer.header("content-location") : base));
    if (description.tracks.empty())
    {
        end(Kind::protocolError, "the camera describes no track");
        return;
    }
    control_ = description.control;
    const std::vector<std::size_t> chosen = events_->onDescribed(description.tracks);
    if (events_ == nullptr)
    {
        return;  // stopped by the choice
    }
    setUp_.tracks().choose(description.tracks, chosen);
    if (setUp_.tracks().empty())
    {
        end(Kind::notFound, "the camera has no track that is of use");
        return;
    }
    state_.enter(State::settingUp);
    setUpNext();
}

void RtspClientSession::setUpNext()
{
    if (setUp_.isComplete())
    {
        play();
        return;
    }
    if (const auto reason = setUp_.prepare(link_->stream(), weak_from_this()))
    {
        finish(*reason);
        return;
    }
    request("SETUP", setUp_.uri(), setUp_.headers());
}

void RtspClientSession::onSetUp(const CameraMessage& answer)
{
    if (const auto reason = setUp_.take(answer, link_->url().host))
    {
        refuse(*reason);
        return;
    }
    setUpNext();
}

void RtspClientSession::play()
{
    setUp_.tracks().punch();
    state_.enter(State::starting);
    request("PLAY", control_, setUp_.withSession({{"Range", "npt=0.000-"}}));
}

void RtspClientSession::onPlay(const CameraMessage& answer)
{
    if (answer.status != RtspRefusal::ok)
    {
        refuse(RtspRefusal::endOf("PLAY", answer));
        return;
    }
    startPlaying(RtpInfo::read(answer.header("rtp-info")));
}

void RtspClientSession::startPlaying(const std::vector<RtpInfo>& infos)
{
    state_.enter(State::playing);
    deadlines_.clear(Deadline::open);
    deadlines_.clear(Deadline::answer);
    const MonotonicTime time = now();
    const bool mayFallBack = setUp_.overUdp() && !packetCame_ && setUp_.mayRequestOther();
    deadlines_.set(Deadline::media, time + (mayFallBack ? options_.udpTimeout : options_.silenceTimeout));
    deadlines_.set(Deadline::keepAlive, time + setUp_.keepAliveInterval());
    events_->onPlaying(setUp_.tracks().playInfos(infos));
}

void RtspClientSession::keepAlive()
{
    deadlines_.set(Deadline::keepAlive, now() + setUp_.keepAliveInterval());
    // Whether it is answered shows by the media that go on.
    if (!link_->request(keepAliveMethod_, control_, setUp_.withSession({})))
    {
        end(Kind::endedByCamera, "the camera takes no requests any more");
    }
}

void RtspClientSession::onKeepAlive(const std::string& method, const CameraMessage& answer)
{
    if (answer.status == RtspRefusal::sessionNotFound || answer.status == RtspRefusal::unauthorized)
    {
        end(answer.status == RtspRefusal::unauthorized ? Kind::unauthorized : Kind::endedByCamera,
            fmt::format("the camera ended the session: it answered {} with {}", method,
                        RtspRefusal::outcomeOf(answer)),
            answer.status);
        return;
    }
    if (answer.status != RtspRefusal::ok && method == keepAliveMethod_)
    {
        keepAliveMethod_ = "OPTIONS";
    }
}

void RtspClientSession::redirect(const CameraMessage& answer)
{
    std::string refusal = link_->prepareRedirect(answer.header("location"));
    if (!refusal.empty())
    {
        end(Kind::protocolError, std::move(refusal), answer.status);
        return;
    }
    asked_ = false;
    connect();
}

void RtspClientSession::onDue()
{
    const MonotonicTime time = now();
    if (deadlines_.isOver(Deadline::body, time))
    {
        deadlines_.clear(Deadline::body);
        link_->endBody();
        return;
    }
    if (deadlines_.isOver(Deadline::open, time) || deadlines_.isOver(Deadline::answer, time))
    {
        onOverdue();
        return;
    }
    if (!state_.is(State::playing))
    {
        return;
    }
    if (deadlines_.isOver(Deadline::media, time))
    {
        onSilence();
        return;
    }
    if (deadlines_.isOver(Deadline::keepAlive, time))
    {
        keepAlive();
    }
}

/// An answer did not come in time.
void RtspClientSession::onOverdue()
{
    if (state_.is(State::tearingDown))
    {
        close();
        return;
    }
    if (state_.is(State::asking) && !deadlines_.isOver(Deadline::open, now()))
    {
        // Some cameras leave it unanswered for ever.
        link_->giveUpAnswers();
        describe();
        return;
    }
    if (state_.is(State::starting) && packetCame_)
    {
        startPlaying({});  // some cameras answer PLAY by media alone
        return;
    }
    end(Kind::timedOut, fmt::format("the camera does not answer in time ({})", nameOf(state_.state())));
}

void RtspClientSession::onSilence()
{
    const bool blocked = setUp_.overUdp() && !packetCame_;
    if (blocked && setUp_.mayRequestOther())
    {
        finish(*setUp_.endForOtherTransport("no media came over UDP", 0));
        return;
    }
    end(Kind::silent,
        fmt::format("the camera sent no media for {:.3g} s{}", secondsOf(options_.silenceTimeout),
                    blocked ? " over UDP, which may be blocked on the way" : ""));
}

/// Ends because the camera refuses a request.
void RtspClientSession::refuse(RtspClientEnd reason)
{
    if (reason.kind == Kind::unauthorized)
    {
        reason.text = link_->loginRefusal();
    }
    finish(reason);
}

void RtspClientSession::end(Kind kind, std::string text, int status)
{
    finish({kind, std::move(text), status, std::nullopt, std::nullopt});
}

void RtspClientSession::finish(const RtspClientEnd& reason)
{
    RtspClientEvents* const events = std::exchange(events_, nullptr);
    leave();
    if (events != nullptr)
    {
        events->onEnded(reason);
    }
}

/// Ends the session at the camera, where there is one, and then the connection.
void RtspClientSession::leave()
{
    const bool open = link_ && link_->isOpen();
    if (state_.is(State::tearingDown) && open)
    {
        return;
    }
    const bool mayHaveSession =
        state_.is(State::settingUp) || state_.is(State::starting) || state_.is(State::playing);
    if (!mayHaveSession || !open || !setUp_.tracks().anyPlaying())
    {
        close();
        return;
    }
    state_.enter(State::tearingDown);
    setUp_.tracks().closeDatagrams();
    if (!link_->request("TEARDOWN", control_, setUp_.withSession({})))
    {
        close();
        return;
    }
    deadlines_.clearAll();
    deadlines_.keepOwner();  // nobody else may own a session that tears down
    deadlines_.set(Deadline::answer, now() + options_.teardownTimeout);
}

void RtspClientSession::close()
{
    state_.enter(State::closed);
    deadlines_.cancel();
    setUp_.tracks().closeDatagrams();
    if (link_)
    {
        link_->close();
    }
    for (std::function<void()>& closed : std::exchange(whenClosed_, {}))
    {
        loop_.post(std::move(closed));
    }
}

}  // namespace refhost
