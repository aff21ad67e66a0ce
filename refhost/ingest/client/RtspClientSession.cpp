#include "refhost/ingest/client/RtspClientSession.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdint>
#include <system_error>
#include <utility>

#include "refhost/base/HostClock.h"
#include "refhost/base/Log.h"
#include "refhost/ingest/client/RtspRefusal.h"

namespace refhost
{
namespace
{

constexpr Duration maxTimeout = std::chrono::hours(24 * 365);
constexpr Duration bodyPause = std::chrono::milliseconds(300);

MonotonicTime now()
{
    return HostClock::system().now();
}

/// Deadlines that can be added to any time.
RtspClientOptions bounded(RtspClientOptions options)
{
    for (Duration* const each : {&options.openTimeout, &options.connectTimeout, &options.answerTimeout,
                                 &options.silenceTimeout, &options.teardownTimeout})
    {
        *each = std::clamp<Duration>(*each, Duration::zero(), maxTimeout);
    }
    return options;
}

}  // namespace

RtspClientSession::RtspClientSession(EventLoop& loop, StreamConnector& connector, const std::string& url,
                                     const RtspClientOptions& options, RtspClientEvents& events)
    : loop_(loop),
      connector_(connector),
      options_(bounded(options)),
      events_(&events),
      home_(CameraUrl::parse(url))
{
}

RtspClientSession::~RtspClientSession()
{
    loop_.cancel(timer_);
}

void RtspClientSession::start()
{
    if (!home_)
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
    url_ = *home_;
    openDeadline_ = now() + options_.openTimeout;
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
    const int channel = tracks_.reportChannelOf(track);
    return state_.is(State::playing) && channel >= 0 && size > 0 && size <= UINT16_MAX &&
           connection_->sendPacket(channel, data, size);
}

void RtspClientSession::connect()
{
    state_.enter(State::connecting);
    const Duration timeout = std::min(options_.connectTimeout, openDeadline_ - now());
    attempt_ = connector_.connect(loop_, url_.host, url_.port, timeout,
                                  [this](std::unique_ptr<ByteStream> stream, const std::string& error)
                                  { onConnected(std::move(stream), error); });
    answerDeadline_ = MonotonicTime::max();
    bodyDeadline_ = MonotonicTime::max();
    arm();
}

void RtspClientSession::onConnected(std::unique_ptr<ByteStream> stream, const std::string& error)
{
    const auto self = shared_from_this();
    attempt_ = nullptr;
    if (stream == nullptr)
    {
        end(Kind::unreachable, error);
        return;
    }
    try
    {
        connection_ = std::make_unique<CameraConnection>(loop_, std::move(stream), *this, weak_from_this());
    }
    catch (const std::system_error& failure)
    {
        end(Kind::unreachable, fmt::format("cannot watch the connection: {}", failure.what()));
        return;
    }
    if (requests_ == nullptr)
    {
        const bool home = url_.sameServer(*home_);
        requests_ = std::make_unique<CameraRequests>(
            CameraLogin(home ? home_->user : "", home ? home_->password : ""));
    }
    if (std::exchange(asked_, true))
    {
        describe();
        return;
    }
    state_.enter(State::asking);
    request("OPTIONS", url_.authority() + url_.target, {});
}

/// Connects again with the login as it stands: some cameras close their connection behind a demand for one,
/// or behind OPTIONS.
void RtspClientSession::reconnect()
{
    ++reconnects_;
    requests_ = std::make_unique<CameraRequests>(requests_->login(), true);
    retired_ = std::move(connection_);
    connect();
}

void RtspClientSession::onClosed(CameraConnection::Ended why, const std::string& error)
{
    const auto self = shared_from_this();
    if (why == CameraConnection::Ended::protocol)
    {
        end(Kind::protocolError, error);
        return;
    }
    const bool mayReconnect = state_.is(State::asking) || state_.is(State::describing);
    if (mayReconnect && reconnects_ < maxReconnects)
    {
        reconnect();
        return;
    }
    end(state_.is(State::playing) ? Kind::endedByCamera : Kind::unreachable, error);
}

void RtspClientSession::onOpenBody()
{
    bodyDeadline_ = now() + bodyPause;
    arm();
}

void RtspClientSession::onInterleaved(int channel, const std::uint8_t* data, std::size_t size,
                                      MonotonicTime arrival)
{
    const CameraTracks::Channel& row = tracks_.channel(channel);
    if (!row.used || events_ == nullptr || (!state_.is(State::playing) && !state_.is(State::starting)))
    {
        return;
    }
    if (row.reports)
    {
        events_->onReport(row.index, data, size, arrival);
        return;
    }
    lastPacket_ = arrival;
    packetCame_ = true;
    events_->onPacket(row.index, data, size, arrival);
}

void RtspClientSession::onMessage(CameraMessage& message)
{
    bodyDeadline_ = MonotonicTime::max();
    if (message.status == 0)
    {
        answerCamera(message);
        return;
    }
    if (message.status < RtspRefusal::ok)
    {
        return;  // it goes on
    }
    switch (requests_->take(message))
    {
        case CameraRequests::Answer::unexpected:
            return;
        case CameraRequests::Answer::again:
            if (!connection_->send(requests_->again()))
            {
                end(Kind::protocolError, "the camera takes no requests any more");
            }
            return;
        case CameraRequests::Answer::final:
            onAnswer(requests_->answered(), message);
            return;
    }
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
    if (!connection_->send(requests_->make(method, uri, std::move(headers))))
    {
        end(Kind::protocolError, "the camera takes no requests any more");
        return;
    }
    answerDeadline_ = now() + options_.answerTimeout;
    arm();
}

void RtspClientSession::onOptions(const CameraMessage& answer)
{
    if (RtspRefusal::isRedirect(answer.status))
    {
        redirect(answer);
        return;
    }
    // Cameras that refuse OPTIONS are asked for the rest all the same.
    keepAliveMethod_ = offersMethod(answer, "GET_PARAMETER") ? "GET_PARAMETER"
                       : offersMethod(answer, "SET_PARAMETER") && !offersMethod(answer, "OPTIONS")
                           ? "SET_PARAMETER"
                           : "OPTIONS";
    describe();
}

void RtspClientSession::describe()
{
    state_.enter(State::describing);
    request("DESCRIBE", url_.authority() + url_.target, {{"Accept", "application/sdp"}});
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
        refuse("DESCRIBE", answer);
        return;
    }
    retired_ = nullptr;
    const std::string_view base = answer.header("content-base");
    const CameraDescription description = CameraDescription::read(
        answer.body, url_, url_.baseTarget(base.empty() ? answer.header("content-location") : base));
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
    tracks_.choose(description.tracks, chosen);
    if (tracks_.empty())
    {
        end(Kind::notFound, "the camera has no track that is of use");
        return;
    }
    state_.enter(State::settingUp);
    setUpNext();
}

void RtspClientSession::setUpNext()
{
    const CameraTracks::Track* const track = tracks_.next();
    if (track == nullptr)
    {
        play();
        return;
    }
    // What a server of this kind has kept of the past would arrive at once, as if it were captured at once.
    request("SETUP", track->control,
            withSession({{"Transport", CameraTracks::transportOf(*track)}, {"Live-Start", "key-frame"}}));
}

void RtspClientSession::onSetUp(const CameraMessage& answer)
{
    CameraTracks::Track& track = *tracks_.next();
    if (answer.status == RtspRefusal::ok)
    {
        if (!onTrackSetUp(answer, track))
        {
            return;
        }
    }
    else if (!track.video && tracks_.anyVideo() && answer.status != RtspRefusal::unauthorized)
    {
        Log::info("{}: the camera does not set up a track: {}", url_.host, RtspRefusal::outcomeOf(answer));
    }
    else
    {
        refuse("SETUP", answer);
        return;
    }
    tracks_.advance();
    setUpNext();
}

/// \returns false after the end
bool RtspClientSession::onTrackSetUp(const CameraMessage& answer, CameraTracks::Track& track)
{
    SessionReply session = SessionReply::read(answer.header("session"));
    if (!session.id.empty())
    {
        session_ = std::move(session);
    }
    const TransportReply transport = TransportReply::read(answer.header("transport"));
    track.playing = true;  // the session is to be ended, whatever comes
    if (!transport.interleaved)
    {
        end(Kind::noUsableTransport, "the camera does not send over TCP", answer.status);
        return false;
    }
    if (!tracks_.play(track, transport))
    {
        end(Kind::protocolError, "the camera sends two tracks in one channel", answer.status);
        return false;
    }
    return true;
}

void RtspClientSession::play()
{
    state_.enter(State::starting);
    request("PLAY", control_, withSession({{"Range", "npt=0.000-"}}));
}

void RtspClientSession::onPlay(const CameraMessage& answer)
{
    if (answer.status != RtspRefusal::ok)
    {
        refuse("PLAY", answer);
        return;
    }
    startPlaying(RtpInfo::read(answer.header("rtp-info")));
}

void RtspClientSession::startPlaying(const std::vector<RtpInfo>& infos)
{
    state_.enter(State::playing);
    openDeadline_ = MonotonicTime::max();
    answerDeadline_ = MonotonicTime::max();
    lastPacket_ = now();
    keepAliveDue_ = lastPacket_ + session_.keepAliveInterval();
    arm();
    events_->onPlaying(tracks_.playInfos(infos));
}

void RtspClientSession::keepAlive()
{
    keepAliveDue_ = now() + session_.keepAliveInterval();
    // Whether it is answered shows by the media that go on.
    if (!connection_->send(requests_->make(keepAliveMethod_, control_, withSession({}))))
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
    const std::string_view location = answer.header("location");
    const std::optional<CameraUrl> next = url_.redirected(location);
    if (!next || ++redirects_ > maxRedirects)
    {
        end(Kind::protocolError,
            fmt::format("the camera sends its clients {}: {}",
                        next ? "in circles" : "where they cannot follow", Log::safe(Log::maskUrl(location))),
            answer.status);
        return;
    }
    url_ = *next;
    asked_ = false;
    requests_ = nullptr;
    connection_->close();
    retired_ = std::move(connection_);
    connect();
}

/// Answers a request of the camera's own.
void RtspClientSession::answerCamera(const CameraMessage& request)
{
    const std::string method = request.startLine.substr(0, request.startLine.find(' '));
    const bool ends = method == "TEARDOWN" || method == "REDIRECT";
    if (!connection_->send(CameraRequests::answerTo(method, request)))
    {
        end(Kind::protocolError, "the camera asks more than it reads");
    }
    else if (ends)
    {
        end(Kind::endedByCamera, fmt::format("the camera ended the session by {}", method));
    }
}

CameraRequests::Headers RtspClientSession::withSession(CameraRequests::Headers headers) const
{
    if (!session_.id.empty())
    {
        headers.emplace_back("Session", session_.id);
    }
    return headers;
}

MonotonicTime RtspClientSession::nextDue() const
{
    MonotonicTime due = std::min({openDeadline_, answerDeadline_, bodyDeadline_, keepAliveDue_});
    if (state_.is(State::playing))
    {
        due = std::min(due, lastPacket_ + options_.silenceTimeout);
    }
    return due;
}

/// Sees to it that the timer runs when the next deadline is over, or before.
void RtspClientSession::arm()
{
    const MonotonicTime due = nextDue();
    if (state_.is(State::closed) || due >= timerDue_)
    {
        return;
    }
    loop_.cancel(timer_);
    timerDue_ = due;
    // Nobody else may own a session that tears down.
    timer_ = loop_.after(
        due - now(),
        [weak = weak_from_this(), held = state_.is(State::tearingDown) ? shared_from_this() : nullptr]
        {
            if (const auto self = weak.lock())
            {
                self->timerDue_ = MonotonicTime::max();
                self->onTimer();
                self->arm();
            }
        });
}

void RtspClientSession::onTimer()
{
    const MonotonicTime time = now();
    if (time >= bodyDeadline_)
    {
        bodyDeadline_ = MonotonicTime::max();
        connection_->endBody();
        return;
    }
    if (time >= std::min(openDeadline_, answerDeadline_))
    {
        onOverdue();
        return;
    }
    if (!state_.is(State::playing))
    {
        return;
    }
    if (time >= lastPacket_ + options_.silenceTimeout)
    {
        end(Kind::timedOut,
            fmt::format("the camera sent no media for {:.3g} s", secondsOf(options_.silenceTimeout)));
        return;
    }
    if (time >= keepAliveDue_)
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
    if (state_.is(State::starting) && packetCame_)
    {
        startPlaying({});  // some cameras answer PLAY by media alone
        return;
    }
    end(Kind::timedOut, fmt::format("the camera does not answer in time ({})", nameOf(state_.state())));
}

void RtspClientSession::refuse(const char* method, const CameraMessage& answer)
{
    RtspClientEnd reason = RtspRefusal::endOf(method, answer);
    if (reason.kind == Kind::unauthorized)
    {
        const bool elsewhere = !url_.sameServer(*home_);
        reason.text = elsewhere ? fmt::format("the camera demands a login at {}, which gets none", url_.host)
                      : home_->user.empty() ? "the camera demands a login"
                                            : "the camera refuses the login";
    }
    finish(reason);
}

void RtspClientSession::end(Kind kind, std::string text, int status)
{
    RtspClientEnd reason;
    reason.kind = kind;
    reason.text = std::move(text);
    reason.status = status;
    finish(reason);
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
    if (state_.is(State::tearingDown) && connection_->isOpen())
    {
        return;
    }
    const bool mayHaveSession =
        state_.is(State::settingUp) || state_.is(State::starting) || state_.is(State::playing);
    if (!mayHaveSession || !connection_->isOpen() || !tracks_.anyPlaying())
    {
        close();
        return;
    }
    state_.enter(State::tearingDown);
    if (!connection_->send(requests_->make("TEARDOWN", control_, withSession({}))))
    {
        close();
        return;
    }
    openDeadline_ = MonotonicTime::max();
    bodyDeadline_ = MonotonicTime::max();
    keepAliveDue_ = MonotonicTime::max();
    answerDeadline_ = now() + options_.teardownTimeout;
    timerDue_ = MonotonicTime::max();
    arm();
}

void RtspClientSession::close()
{
    state_.enter(State::closed);
    loop_.cancel(timer_);
    attempt_ = nullptr;
    if (connection_ != nullptr)
    {
        connection_->close();
    }
    for (std::function<void()>& closed : std::exchange(whenClosed_, {}))
    {
        loop_.post(std::move(closed));
    }
}

}  // namespace refhost
