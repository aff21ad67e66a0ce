#include "refhost/rtsp/session/RtspSession.h"

#include <algorithm>
#include <atomic>
#include <exception>
#include <utility>

#include "refhost/base/HostClock.h"
#include "refhost/base/HostStatus.h"
#include "refhost/base/Log.h"
#include "refhost/rtsp/message/StatusMap.h"
#include "refhost/rtsp/session/DescribedTracks.h"
#include "support/StatusCode.h"

namespace refhost
{
namespace
{

using Step = StatusMap::Step;

std::unique_ptr<const SharedStream> sharedBy(SafePointer<IRTSPController> controller,
                                             const MediaRoutes::Route& route)
{
    return route.multicast() ? std::make_unique<const SharedStream>(SharedStream::of(controller)) : nullptr;
}

std::uint64_t nextNumber()
{
    static std::atomic<std::uint64_t> last{0};
    return ++last;
}

}  // namespace

RtspSession::RtspSession(std::string id, std::string presentation,
                         const SafePointer<IRTSPController>& controller, const MediaRoutes::Route& route,
                         SessionOwner owner, MonotonicTime now)
    : id_(std::move(id)),
      number_(nextNumber()),
      since_(HostClock::system().wallNow()),
      presentation_(std::move(presentation)),
      route_(route),
      target_(MediaTarget::of(route, presentation_)),
      owner_(std::move(owner)),
      presence_(now),
      shared_(sharedBy(controller, route)),
      mutex_(route.multicast() ? *route.together : own_),
      controller_(controller)
{
    if (route.recorded)
    {
        recordedPlay_ = std::make_unique<RecordedPlay>(id_, controller);
    }
}

RtspSession::~RtspSession() noexcept(false)
{
    end();
}

const std::string& RtspSession::id() const
{
    return id_;
}

std::string RtspSession::logName() const
{
    constexpr std::size_t digits = 4;
    return id_.substr(0, digits) + "... of " + presentation_;
}

SessionSummary RtspSession::summary() const
{
    SessionSummary made;
    made.number = number_;
    made.presentation = presentation_;
    made.kind = route_.recorded ? "playback" : route_.multicast() ? "multicast" : "live";
    made.address = owner_.address();
    made.user = owner_.user();
    made.camera = target_.camera;
    made.since = since_;
    const SmallMutexLock guard(mutex_);
    made.transport = audit_.transport();
    made.bytes = audit_.bytes();
    made.lost = audit_.lost();
    for (const SessionTrack* const track : tracks_.all())
    {
        ++made.tracks;
        made.playing = made.playing || track->playing();
        if (track->delivery.transport && !track->delivery.shared())
        {
            const RtpTransport& transport = *track->delivery.transport->operator->();
            const RtpTransport::Sent& sent = transport.sent;
            made.bytes += sent.bytes.load(std::memory_order_relaxed);
            made.lost += sent.lost.load(std::memory_order_relaxed);
            const MonotonicTime capture = sent.capture.load(std::memory_order_relaxed);
            if (track->playing() && capture != MonotonicTime())
            {
                const Duration lag = std::max(HostClock::system().now() - capture, Duration::zero());
                made.lag = std::max(made.lag.value_or(lag), lag);
            }
        }
    }
    return made;
}

const std::string& RtspSession::presentation() const
{
    return presentation_;
}

const SessionOwner& RtspSession::owner() const
{
    return owner_;
}

const MediaTarget& RtspSession::target() const
{
    return target_;
}

std::optional<std::pair<int, int>> RtspSession::liveStream() const
{
    return MediaTarget::liveStreamOf(route_, presentation_);
}

const SharedStream* RtspSession::shared() const
{
    return shared_.get();
}

bool RtspSession::recorded() const
{
    return route_.recorded;
}

bool RtspSession::replays(bool required)
{
    if (required)
    {
        replays_ = true;
    }
    return replays_;
}

std::shared_ptr<SessionLiveness> RtspSession::liveness() const
{
    return presence_.liveness();
}

RtspStatus RtspSession::setup(std::string trackId, const MakeDelivery& make, std::uint32_t& ssrc)
{
    const SmallMutexLock guard(mutex_);
    if (state_.is(SessionState::ended))
    {
        return rtspSessionNotFound;
    }
    if (trackId.empty())
    {
        const RtspStatus status = DescribedTracks(*controller_).onlySent(trackId);
        if (status != rtspOk)
        {
            return status;
        }
    }
    SessionTrack* const former = tracks_.find(trackId);
    if (former != nullptr && former->playing())
    {
        return rtspInvalidState;
    }
    // A member of a group stays one: stopping one of its tracks would end its membership in all.
    if (former != nullptr && !shared_)
    {
        stopTrack(*former);
        tracks_.remove(*former);
    }
    auto track = std::make_unique<SessionTrack>(std::move(trackId));
    const RtspStatus status = make(track->delivery);
    if (status != rtspOk)
    {
        return status;
    }
    SafePointer<IRTSPController>& controller = *controller_;
    const int code = controller->setup(id_, track->id, SafePointer<IConnection>(*track->delivery.transport));
    if (code != 0)
    {
        // The controller may have set it up partly.
        if (!shared_ || tracks_.empty())
        {
            stopTrack(*track);
        }
        return StatusMap::ofCode(Step::setup, code);
    }
    int number = 0;
    controller->getTrackSSRC(id_, track->id, number);
    ssrc = static_cast<std::uint32_t>(number);
    if (former != nullptr && shared_)
    {
        tracks_.remove(*former);
    }
    tracks_.add(std::move(track));
    return rtspOk;
}

void RtspSession::noteStarted(std::string_view url, std::string_view transport)
{
    const SmallMutexLock guard(mutex_);
    if (!state_.is(SessionState::ended))
    {
        audit_.started(owner_, url, transport);
    }
}

RtspStatus RtspSession::play(std::string_view trackId, const PlayRequest& order, Attempt attempt,
                             const AnswerPlay& answer, bool& notReady)
{
    TransportHold hold;
    const SmallMutexLock guard(mutex_);
    Selection tracks;
    RtspStatus status = select(trackId, tracks);
    if (status != rtspOk)
    {
        return status;
    }
    if (waiting_ != nullptr)
    {
        hold.absorb(*waiting_);
        waiting_.reset();
    }
    for (const SessionTrack* track : tracks)
    {
        // A shared transport keeps sending to the others.
        if (!track->delivery.shared())
        {
            hold.add(*track->delivery.transport);
        }
    }
    if (recordedPlay_ && !attempt.again)
    {
        status =
            recordedPlay_->prepare(order, SessionTracks::allPlaying(tracks), SessionTracks::idsOf(tracks));
    }
    if (status == rtspOk)
    {
        status = start(tracks, attempt, notReady);
    }
    if (status != rtspOk)
    {
        return status;
    }
    if (notReady)
    {
        waiting_ = std::make_unique<TransportHold>(std::move(hold));
        return rtspOk;
    }
    answer(played(tracks, order));
    return rtspOk;
}

/// \returns 200 when play() was called for every track, even if some are not ready
RtspStatus RtspSession::start(const Selection& tracks, Attempt attempt, bool& notReady)
{
    SafePointer<IRTSPController>& controller = *controller_;
    if (!attempt.again)
    {
        for (SessionTrack* track : tracks)
        {
            track->startPlay();
        }
    }
    for (SessionTrack* track : tracks)
    {
        const int code = controller->play(id_, track->id);
        const bool waits = code == hostStreamNotReady && !attempt.last;
        if (isOver(*track, code, tracks))
        {
            continue;
        }
        if (code != 0 && !waits)
        {
            takeBack(tracks);
            notReady = false;
            return StatusMap::ofCode(Step::control, code);
        }
        // All tracks get ready at the same time, even if one has to wait.
        if (waits)
        {
            notReady = true;
            track->prepare();
        }
        else
        {
            track->play();
        }
        if (track->playing())
        {
            state_.enter(SessionState::played);
        }
    }
    return rtspOk;
}

/// Talk-back may have ended, as after a BYE on that track: the other tracks continue.
bool RtspSession::isOver(SessionTrack& track, int code, const Selection& asked)
{
    return code == statusRefused && asked.size() > 1 && track.isBackChannel(*controller_);
}

/// Pauses the tracks that the present request started or prepared.
void RtspSession::takeBack(const Selection& tracks)
{
    for (SessionTrack* track : tracks)
    {
        if (track->startedByPlay())
        {
            (*controller_)->pause(id_, track->id);
            track->pause();
        }
    }
}

RtspSession::Played RtspSession::played(const Selection& tracks, const PlayRequest& order)
{
    Played out;
    out.tracks.reserve(tracks.size());
    for (SessionTrack* track : tracks)
    {
        PlayedTrack entry;
        entry.id = track->id;
        entry.known = route_.firstPacket == nullptr
                          ? (*controller_)->getCurRTPPacketInfo(id_, track->id, entry.first) == 0
                          : route_.firstPacket(id_, track->id, entry.first);
        if (!entry.known && track->isBackChannel(*controller_))
        {
            continue;
        }
        entry.connection = track->delivery.connection;
        out.tracks.push_back(entry);
    }
    if (recordedPlay_)
    {
        const RangeHeader::Unit unit = order.range ? order.range->unit : RangeHeader::Unit::npt;
        out.recorded = recordedPlay_->outcome(unit, SessionTracks::idsOf(tracks));
    }
    return out;
}

RtspStatus RtspSession::pause(std::string_view trackId)
{
    std::unique_ptr<TransportHold> waiting;
    const SmallMutexLock guard(mutex_);
    Selection tracks;
    const RtspStatus status = selectPlaying(trackId, tracks);
    if (status != rtspOk)
    {
        return status;
    }
    SafePointer<IRTSPController>& controller = *controller_;
    for (SessionTrack* track : tracks)
    {
        if (track->playing())
        {
            const int code = controller->pause(id_, track->id);
            if (code != 0 && !isOver(*track, code, tracks))
            {
                return StatusMap::ofCode(Step::control, code);
            }
            track->pause();
        }
    }
    waiting = std::move(waiting_);
    return rtspOk;
}

RtspStatus RtspSession::pauseAt(std::string_view trackId, const RangeHeader& point)
{
    const SmallMutexLock guard(mutex_);
    Selection tracks;
    const RtspStatus status = selectPlaying(trackId, tracks);
    if (status != rtspOk)
    {
        return status;
    }
    return recordedPlay_ ? recordedPlay_->pauseAt(point, SessionTracks::idsOf(tracks)) : rtspInvalidRange;
}

RtspStatus RtspSession::teardown(std::string_view trackId, bool& empty)
{
    const SmallMutexLock guard(mutex_);
    Selection tracks;
    RtspStatus status = select(trackId, tracks);
    if (status == rtspOk && shared_)
    {
        tracks.clear();
        status = select({}, tracks);
    }
    if (status != rtspOk)
    {
        return status;
    }
    for (SessionTrack* gone : tracks)
    {
        stopTrack(*gone);
        tracks_.remove(*gone);
    }
    empty = tracks_.empty();
    return rtspOk;
}

void RtspSession::end()
{
    std::unique_ptr<TransportHold> waiting;
    const SmallMutexLock guard(mutex_);
    if (state_.is(SessionState::ended))
    {
        return;
    }
    state_.enter(SessionState::ended);
    over_.store(true, std::memory_order_release);
    unaware_ = SessionTracks::anyPlaying(tracks_.all()) && sentNothing();
    for (SessionTrack* track : tracks_.all())
    {
        stopTrack(*track);
    }
    tracks_.clear();
    waiting = std::move(waiting_);
    recordedPlay_.reset();
    controller_.reset();
    audit_.ended(owner_);
}

/// As the transports count it. The tracks of a group count for the member whose SETUP was the last.
bool RtspSession::sentNothing() const
{
    const Selection tracks = tracks_.all();
    return std::all_of(tracks.begin(), tracks.end(),
                       [](const SessionTrack* track)
                       {
                           const auto& transport = track->delivery.transport;
                           return !transport || (*transport)->sent.bytes.load(std::memory_order_relaxed) == 0;
                       });
}

std::uint64_t RtspSession::unawareConnection() const
{
    const SmallMutexLock guard(mutex_);
    return unaware_ ? presence_.connection() : 0;
}

void RtspSession::noteRequest(std::uint64_t connection, MonotonicTime now)
{
    presence_.noteRequest(connection, now);
}

void RtspSession::connectionAnswered(std::uint64_t connection, MonotonicTime time)
{
    const SmallMutexLock guard(mutex_);
    if (state_.is(SessionState::played) && tracks_.carriedBy(connection))
    {
        presence_.liveness()->noteEarlierActivity(time);
    }
}

bool RtspSession::connectionEnded(std::uint64_t connection, MonotonicTime now)
{
    presence_.connectionEnded(connection, now);
    const SmallMutexLock guard(mutex_);
    return tracks_.carriedBy(connection);
}

bool RtspSession::expired(MonotonicTime now, Duration sessionTimeout, Duration orphanTimeout) const
{
    return presence_.expired(now, sessionTimeout, orphanTimeout);
}

std::size_t RtspSession::trackCount() const
{
    const SmallMutexLock guard(mutex_);
    return tracks_.size();
}

bool RtspSession::isBackChannel(const std::string& trackId)
{
    const SmallMutexLock guard(mutex_);
    SubMediaInfo described;
    return controller_ && DescribedTracks(*controller_).find(trackId, described) &&
           described.getAudioBackInfoFlag();
}

std::optional<Right> RtspSession::lackedRight(const AccessRules& rules)
{
    if (!rules.enabled())
    {
        return std::nullopt;
    }
    const SmallMutexLock guard(mutex_);
    for (SessionTrack* const track : tracks_.all())
    {
        const Right right = track->isBackChannel(*controller_) ? Right::talk : target_.right;
        if (!rules.allows(owner_.user(), right, target_.camera))
        {
            return right;
        }
    }
    return std::nullopt;
}

RtspStatus RtspSession::select(std::string_view trackId, Selection& out)
{
    return state_.is(SessionState::ended) ? rtspSessionNotFound : tracks_.select(trackId, *controller_, out);
}

/// The same; 455 unless at least one of the tracks plays.
RtspStatus RtspSession::selectPlaying(std::string_view trackId, Selection& out)
{
    const RtspStatus status = select(trackId, out);
    if (status != rtspOk)
    {
        return status;
    }
    return SessionTracks::anyPlaying(out) ? rtspOk : rtspInvalidState;
}

/// Continues after a failure: the rest of the session must be released.
void RtspSession::stopTrack(SessionTrack& track)
{
    try
    {
        (*controller_)->stop(id_, track.id);
    }
    catch (const std::exception& error)
    {
        Log::error("session {}: stopping {} failed: {}", logName(), track.id, error.what());
    }
    if (track.delivery.transport)
    {
        audit_.count(*track.delivery.transport->operator->());
    }
    track.close();
}

}  // namespace refhost
