#include "refhost/rtsp/RtspSession.h"

#include <algorithm>
#include <exception>
#include <utility>

#include "hostapi/description/MediaInfo.h"
#include "refhost/base/Log.h"
#include "refhost/rtsp/StatusMap.h"

namespace refhost
{
namespace
{

using Step = StatusMap::Step;

// Packets that were on their way when the connection went do not make the client heard again.
constexpr std::int64_t orphanGraceMs = 1000;

/// Holds transports back until the end of the scope. Made before the session's lock is taken, because
/// releasing tells the dispatch, which is not to be told under a lock.
class Hold
{
public:
    void add(const SafePointer<RtpTransport>& transport)
    {
        held_.push_back(transport);
        transport->hold();
    }

    ~Hold()
    {
        for (const SafePointer<RtpTransport>& transport : held_)
        {
            try
            {
                transport->release();
            }
            catch (const std::exception& error)
            {
                Log::error("letting packets go failed: {}", error.what());
            }
        }
    }

private:
    std::vector<SafePointer<RtpTransport>> held_;
};

}  // namespace

RtspSession::RtspSession(std::string id, std::string presentation,
                         const SafePointer<IRTSPController>& controller, FirstPacketFunction firstPacket,
                         const SocketAddress::Key& client, std::int64_t nowMs)
    : id_(std::move(id)),
      presentation_(std::move(presentation)),
      firstPacket_(std::move(firstPacket)),
      client_(client),
      liveness_(std::make_shared<SessionLiveness>()),
      controller_(controller)
{
    liveness_->heard(nowMs);
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

const SocketAddress::Key& RtspSession::client() const
{
    return client_;
}

std::shared_ptr<SessionLiveness> RtspSession::liveness() const
{
    return liveness_;
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
        const RtspStatus status = onlyTrack(trackId);
        if (status != rtspOk)
        {
            return status;
        }
    }
    Track* const former = findTrack(trackId);
    if (former != nullptr)
    {
        if (former->playing)
        {
            return rtspInvalidState;
        }
        stopTrack(*former);
        tracks_.erase(std::find_if(tracks_.begin(), tracks_.end(),
                                   [former](const auto& track) { return track.get() == former; }));
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
        stopTrack(*track);
        return StatusMap::ofCode(Step::setup, code);
    }
    int number = 0;
    controller->getTrackSSRC(id_, track->id, number);
    ssrc = static_cast<std::uint32_t>(number);
    tracks_.push_back(std::move(track));
    return rtspOk;
}

RtspStatus RtspSession::play(std::string_view trackId, const AnswerPlay& answer)
{
    Hold hold;
    const std::lock_guard<std::mutex> guard(mutex_);
    std::vector<Track*> tracks;
    const RtspStatus status = select(trackId, tracks);
    if (status != rtspOk)
    {
        return status;
    }
    for (const Track* track : tracks)
    {
        hold.add(*track->delivery.transport);
    }
    SafePointer<IRTSPController>& controller = *controller_;
    std::vector<Track*> started;
    for (Track* track : tracks)
    {
        const int code = controller->play(id_, track->id);
        if (code != 0)
        {
            for (Track* other : started)
            {
                controller->pause(id_, other->id);
                other->playing = false;
            }
            return StatusMap::ofCode(Step::control, code);
        }
        if (!track->playing)
        {
            started.push_back(track);
            track->playing = true;
        }
    }
    std::vector<PlayedTrack> played;
    played.reserve(tracks.size());
    for (const Track* track : tracks)
    {
        PlayedTrack entry;
        entry.id = track->id;
        entry.known = firstPacket_(id_, track->id, entry.first);
        entry.link = track->delivery.link;
        played.push_back(entry);
    }
    answer(played);
    return rtspOk;
}

RtspStatus RtspSession::pause(std::string_view trackId)
{
    const std::lock_guard<std::mutex> guard(mutex_);
    std::vector<Track*> tracks;
    const RtspStatus status = select(trackId, tracks);
    if (status != rtspOk)
    {
        return status;
    }
    if (std::none_of(tracks.begin(), tracks.end(), [](const Track* track) { return track->playing; }))
    {
        return rtspInvalidState;
    }
    SafePointer<IRTSPController>& controller = *controller_;
    for (Track* track : tracks)
    {
        if (track->playing)
        {
            const int code = controller->pause(id_, track->id);
            if (code != 0)
            {
                return StatusMap::ofCode(Step::control, code);
            }
            track->playing = false;
        }
    }
    return rtspOk;
}

RtspStatus RtspSession::teardown(std::string_view trackId, bool& empty)
{
    const std::lock_guard<std::mutex> guard(mutex_);
    std::vector<Track*> tracks;
    const RtspStatus status = select(trackId, tracks);
    if (status != rtspOk)
    {
        return status;
    }
    for (Track* gone : tracks)
    {
        stopTrack(*gone);
        tracks_.erase(std::find_if(tracks_.begin(), tracks_.end(),
                                   [gone](const auto& track) { return track.get() == gone; }));
    }
    empty = tracks_.empty();
    return rtspOk;
}

void RtspSession::end()
{
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
    controller_.reset();
}

void RtspSession::heard(std::uint64_t link, std::int64_t nowMs)
{
    liveness_->heard(nowMs);
    orphanedMs_.store(-1, std::memory_order_relaxed);
    const std::lock_guard<std::mutex> guard(mutex_);
    link_ = link;
}

void RtspSession::linkMoved(std::uint64_t link, std::int64_t nowMs)
{
    const std::lock_guard<std::mutex> guard(mutex_);
    for (const auto& track : tracks_)
    {
        if (track->delivery.link == link && track->playing)
        {
            liveness_->heard(nowMs);
            return;
        }
    }
}

bool RtspSession::linkEnded(std::uint64_t link, std::int64_t nowMs)
{
    const std::lock_guard<std::mutex> guard(mutex_);
    for (const auto& track : tracks_)
    {
        if (track->delivery.link == link)
        {
            return true;
        }
    }
    if (link_ == link)
    {
        orphanedMs_.store(nowMs, std::memory_order_relaxed);
    }
    return false;
}

bool RtspSession::expired(std::int64_t nowMs, std::int64_t sessionTimeoutMs,
                          std::int64_t orphanTimeoutMs) const
{
    const std::int64_t heardMs = liveness_->lastHeardMs();
    const std::int64_t orphanedMs = orphanedMs_.load(std::memory_order_relaxed);
    if (orphanedMs >= 0 && heardMs < orphanedMs + orphanGraceMs)
    {
        return nowMs - orphanedMs >= orphanTimeoutMs;
    }
    return nowMs - heardMs >= sessionTimeoutMs;
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
        return hasTrackInDescription(trackId) ? rtspInvalidState : rtspNotFound;
    }
    out.push_back(track);
    return rtspOk;
}

RtspStatus RtspSession::onlyTrack(std::string& trackId)
{
    MediaInfo info;
    const int code = (*controller_)->getMediaInfo(info);
    if (code != 0)
    {
        return StatusMap::ofCode(Step::control, code);
    }
    if (info.getAllSubMediaInfo().size() != 1)
    {
        return rtspAggregateNotAllowed;
    }
    trackId = info.getAllSubMediaInfo().front().trackId;
    return rtspOk;
}

bool RtspSession::hasTrackInDescription(std::string_view trackId)
{
    MediaInfo info;
    SubMediaInfo track;
    return (*controller_)->getMediaInfo(info) == 0 && info.getSubMediaInfo(std::string(trackId), track);
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
    if (track.delivery.transport)
    {
        (*track.delivery.transport)->close();
    }
    track.delivery.channels.reset();
}

}  // namespace refhost
