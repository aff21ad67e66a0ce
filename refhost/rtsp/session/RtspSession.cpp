#include "refhost/rtsp/session/RtspSession.h"

#include <algorithm>
#include <exception>
#include <utility>

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

std::optional<SharedStream> sharedBy(SafePointer<IRTSPController> controller, const MediaRoutes::Route& route)
{
    return route.multicast() ? std::optional<SharedStream>(SharedStream::of(controller)) : std::nullopt;
}

}  // namespace

RtspSession::RtspSession(std::string id, std::string presentation,
                         const SafePointer<IRTSPController>& controller, const MediaRoutes::Route& route,
                         SessionOwner owner, std::int64_t nowMs)
    : id_(std::move(id)),
      presentation_(std::move(presentation)),
      firstPacket_(route.firstPacket),
      recorded_(route.recorded),
      owner_(std::move(owner)),
      presence_(nowMs),
      shared_(sharedBy(controller, route)),
      together_(route.together),
      mutex_(together_ ? *together_ : own_),
      controller_(controller)
{
    if (route.recorded)
    {
        recordedPlay_.emplace(id_, controller);
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
    constexpr std::size_t shown = 4;
    return id_.substr(0, shown) + "... of " + presentation_;
}

const std::string& RtspSession::presentation() const
{
    return presentation_;
}

const SessionOwner& RtspSession::owner() const
{
    return owner_;
}

const SharedStream* RtspSession::shared() const
{
    return shared_ ? &*shared_ : nullptr;
}

bool RtspSession::recorded() const
{
    return recorded_;
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
    const std::lock_guard<std::mutex> guard(mutex_);
    if (ended_)
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
    Track* const former = findTrack(trackId);
    if (former != nullptr && former->playing)
    {
        return rtspInvalidState;
    }
    // A member of a group stays one: to stop one of its tracks would end its membership in all.
    if (former != nullptr && !shared_)
    {
        stopTrack(*former);
        forget(*former);
    }
    auto track = std::make_unique<Track>();
    track->id = std::move(trackId);
    const RtspStatus status = make(track->delivery);
    if (status != rtspOk)
    {
        return status;
    }
    SafePointer<IRTSPController>& controller = *controller_;
    const int code = controller->setup(id_, track->id, SafePointer<IConnection>(*track->delivery.transport));
    if (code != 0)
    {
        // The controller may have got half way.
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
        forget(*former);
    }
    tracks_.push_back(std::move(track));
    return rtspOk;
}

RtspStatus RtspSession::play(std::string_view trackId, const PlayRequest& order, Attempt attempt,
                             const AnswerPlay& answer, bool& notReady)
{
    TransportHold hold;
    const std::lock_guard<std::mutex> guard(mutex_);
    std::vector<Track*> tracks;
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
    for (const Track* track : tracks)
    {
        // What others watch too goes on meanwhile.
        if (!(*track->delivery.transport)->traits().shared)
        {
            hold.add(*track->delivery.transport);
        }
    }
    if (recordedPlay_ && !attempt.again)
    {
        const bool playing =
            std::all_of(tracks.begin(), tracks.end(), [](const Track* track) { return track->playing; });
        status = recordedPlay_->prepare(order, playing, idsOf(tracks));
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

/// \returns 200 with every track asked to play, of which some may not be ready
RtspStatus RtspSession::start(const std::vector<Track*>& tracks, Attempt attempt, bool& notReady)
{
    SafePointer<IRTSPController>& controller = *controller_;
    for (Track* track : tracks)
    {
        // A request that had to wait has started some of them before.
        track->started = track->started && attempt.again;
    }
    for (Track* track : tracks)
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
        // One that waits does not keep the others from getting ready at the same time.
        notReady = notReady || waits;
        track->started = track->started || !track->playing;
        track->playing = track->playing || !waits;
        played_ = played_ || track->playing;
    }
    return rtspOk;
}

/// Looks at the description, which is copied for it, at the first time alone.
bool RtspSession::isBackChannel(Track& track)
{
    if (!track.backChannel)
    {
        SubMediaInfo described;
        track.backChannel =
            DescribedTracks(*controller_).find(track.id, described) && described.getAudioBackInfoFlag();
    }
    return *track.backChannel;
}

/// Talk-back may end by itself, as when the client sent BYE on that track: the others go on.
bool RtspSession::isOver(Track& track, int code, const std::vector<Track*>& asked)
{
    return code == statusRefused && asked.size() > 1 && isBackChannel(track);
}

/// Pauses what the present request has started, or asked to get ready.
void RtspSession::takeBack(const std::vector<Track*>& tracks)
{
    for (Track* track : tracks)
    {
        if (track->started)
        {
            (*controller_)->pause(id_, track->id);
            track->playing = false;
        }
    }
}

RtspSession::Played RtspSession::played(const std::vector<Track*>& tracks, const PlayRequest& order)
{
    Played out;
    out.tracks.reserve(tracks.size());
    for (Track* track : tracks)
    {
        PlayedTrack entry;
        entry.id = track->id;
        entry.known = firstPacket_ == nullptr
                          ? (*controller_)->getCurRTPPacketInfo(id_, track->id, entry.first) == 0
                          : firstPacket_(id_, track->id, entry.first);
        if (!entry.known && isBackChannel(*track))
        {
            continue;
        }
        entry.connection = track->delivery.connection;
        out.tracks.push_back(entry);
    }
    if (recordedPlay_)
    {
        const RangeHeader::Unit unit = order.range ? order.range->unit : RangeHeader::Unit::npt;
        out.recorded = recordedPlay_->outcome(unit, idsOf(tracks));
    }
    return out;
}

RtspStatus RtspSession::pause(std::string_view trackId)
{
    std::unique_ptr<TransportHold> waiting;
    const std::lock_guard<std::mutex> guard(mutex_);
    std::vector<Track*> tracks;
    const RtspStatus status = selectPlaying(trackId, tracks);
    if (status != rtspOk)
    {
        return status;
    }
    SafePointer<IRTSPController>& controller = *controller_;
    for (Track* track : tracks)
    {
        if (track->playing)
        {
            const int code = controller->pause(id_, track->id);
            if (code != 0 && !isOver(*track, code, tracks))
            {
                return StatusMap::ofCode(Step::control, code);
            }
            track->playing = false;
        }
    }
    waiting = std::move(waiting_);
    return rtspOk;
}

RtspStatus RtspSession::pauseAt(std::string_view trackId, const RangeHeader& point)
{
    const std::lock_guard<std::mutex> guard(mutex_);
    std::vector<Track*> tracks;
    const RtspStatus status = selectPlaying(trackId, tracks);
    if (status != rtspOk)
    {
        return status;
    }
    return recordedPlay_ ? recordedPlay_->pauseAt(point, idsOf(tracks)) : rtspInvalidRange;
}

RtspStatus RtspSession::teardown(std::string_view trackId, bool& empty)
{
    const std::lock_guard<std::mutex> guard(mutex_);
    std::vector<Track*> tracks;
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
    for (Track* gone : tracks)
    {
        stopTrack(*gone);
        forget(*gone);
    }
    empty = tracks_.empty();
    return rtspOk;
}

void RtspSession::end()
{
    std::unique_ptr<TransportHold> waiting;
    const std::lock_guard<std::mutex> guard(mutex_);
    if (ended_)
    {
        return;
    }
    ended_ = true;
    for (const auto& track : tracks_)
    {
        stopTrack(*track);
    }
    tracks_.clear();
    waiting = std::move(waiting_);
    recordedPlay_.reset();
    controller_.reset();
}

void RtspSession::heard(std::uint64_t connection, std::int64_t nowMs)
{
    presence_.named(connection, nowMs);
}

void RtspSession::connectionAnswered(std::uint64_t connection, std::int64_t ms)
{
    const std::lock_guard<std::mutex> guard(mutex_);
    const bool carried =
        std::any_of(tracks_.begin(), tracks_.end(),
                    [connection](const auto& track) { return track->delivery.connection == connection; });
    if (played_ && carried)
    {
        presence_.liveness()->heardAtLeast(ms);
    }
}

bool RtspSession::connectionEnded(std::uint64_t connection, std::int64_t nowMs)
{
    presence_.connectionEnded(connection, nowMs);
    const std::lock_guard<std::mutex> guard(mutex_);
    return std::any_of(tracks_.begin(), tracks_.end(),
                       [connection](const auto& track) { return track->delivery.connection == connection; });
}

bool RtspSession::expired(std::int64_t nowMs, std::int64_t sessionTimeoutMs,
                          std::int64_t orphanTimeoutMs) const
{
    return presence_.expired(nowMs, sessionTimeoutMs, orphanTimeoutMs);
}

std::size_t RtspSession::trackCount() const
{
    const std::lock_guard<std::mutex> guard(mutex_);
    return tracks_.size();
}

RtspSession::Track* RtspSession::findTrack(std::string_view trackId)
{
    for (const auto& track : tracks_)
    {
        if (track->id == trackId)
        {
            return track.get();
        }
    }
    return nullptr;
}

RtspStatus RtspSession::select(std::string_view trackId, std::vector<Track*>& out)
{
    if (ended_)
    {
        return rtspSessionNotFound;
    }
    if (trackId.empty())
    {
        for (const auto& track : tracks_)
        {
            out.push_back(track.get());
        }
        return out.empty() ? rtspInvalidState : rtspOk;
    }
    Track* const track = findTrack(trackId);
    if (track == nullptr)
    {
        SubMediaInfo described;
        return DescribedTracks(*controller_).find(std::string(trackId), described) ? rtspInvalidState
                                                                                   : rtspNotFound;
    }
    out.push_back(track);
    return rtspOk;
}

/// The same, where at least one of the tracks plays.
RtspStatus RtspSession::selectPlaying(std::string_view trackId, std::vector<Track*>& out)
{
    const RtspStatus status = select(trackId, out);
    if (status != rtspOk)
    {
        return status;
    }
    const bool playing =
        std::any_of(out.begin(), out.end(), [](const Track* track) { return track->playing; });
    return playing ? rtspOk : rtspInvalidState;
}

std::vector<std::string> RtspSession::idsOf(const std::vector<Track*>& tracks)
{
    std::vector<std::string> ids;
    ids.reserve(tracks.size());
    for (const Track* track : tracks)
    {
        ids.push_back(track->id);
    }
    return ids;
}

void RtspSession::forget(const Track& track)
{
    tracks_.erase(std::find_if(tracks_.begin(), tracks_.end(),
                               [&track](const auto& other) { return other.get() == &track; }));
}

/// Goes on whatever happens: the rest of the session must be let go all the same.
void RtspSession::stopTrack(Track& track)
{
    try
    {
        (*controller_)->stop(id_, track.id);
    }
    catch (const std::exception& error)
    {
        Log::error("session {}: stopping {} failed: {}", logName(), track.id, error.what());
    }
    if (track.delivery.transport && !(*track.delivery.transport)->traits().shared)
    {
        (*track.delivery.transport)->close();
    }
    track.delivery.channels.reset();
}

}  // namespace refhost
