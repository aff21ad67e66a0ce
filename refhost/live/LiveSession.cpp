#include "refhost/live/LiveSession.h"

#include <algorithm>

#include "refhost/base/HostStatus.h"

namespace refhost
{

LiveSession::Lock::Lock(LiveSession& session) : session_(session)
{
    session.mutex_.lock();
}

LiveSession::Lock::~Lock()
{
    session_.mutex_.unlock();
    if (session_.pumpRequested_.exchange(false))
    {
        session_.pump(nullptr);
    }
}

LiveSession::LiveSession() : name_(RtcpWriter::randomName()) {}

bool LiveSession::add(const std::string& streamKey, const SubMediaInfo& info,
                      const std::shared_ptr<LiveStream>& stream, int payloadSize)
{
    auto sender =
        std::make_shared<TrackSender>(weak_from_this(), streamKey, info, stream, payloadSize, name_);
    std::shared_ptr<TrackSender> former;  // destroyed after the lock
    const Lock lock(*this);
    const auto same = placeOf(streamKey, info.trackId);
    if (same != senders_.end())
    {
        former = std::move(*same);
        former->end();
        senders_.erase(same);
    }
    // Video first: the audio starts at its first frame.
    senders_.insert(sender->video() ? senders_.begin() : senders_.end(), std::move(sender));
    return former == nullptr;
}

int LiveSession::connect(const std::string& streamKey, const std::string& trackId,
                         const SafePointer<IConnection>& connection)
{
    std::shared_ptr<TrackSender> former;  // destroyed after the lock
    const Lock lock(*this);
    const auto sender = placeOf(streamKey, trackId);
    if (sender == senders_.end())
    {
        return hostTrackUnknown;
    }
    if ((*sender)->ended())
    {
        former = *sender;
        *sender = former->successor(name_);
    }
    return (*sender)->connect(connection, *sender);
}

int LiveSession::play(const std::string& streamKey, const std::string& trackId)
{
    const Lock lock(*this);
    const auto sender = find(streamKey, trackId);
    if (sender == senders_.end())
    {
        return hostTrackUnknown;
    }
    const int status = (*sender)->play(shared_from_this());
    if (status == 0)
    {
        noteFootprint();
        pumpLocked(nullptr);
    }
    return status;
}

int LiveSession::pause(const std::string& streamKey, const std::string& trackId)
{
    const Lock lock(*this);
    const auto sender = find(streamKey, trackId);
    if (sender == senders_.end())
    {
        return hostTrackUnknown;
    }
    (*sender)->pause();
    return 0;
}

int LiveSession::remove(const std::string& streamKey, const std::string& trackId)
{
    std::shared_ptr<TrackSender> gone;  // destroyed after the lock
    const Lock lock(*this);
    const auto sender = find(streamKey, trackId);
    if (sender == senders_.end())
    {
        return hostTrackUnknown;
    }
    gone = std::move(*sender);
    senders_.erase(sender);
    gone->end();
    return 0;
}

int LiveSession::endTrack(const std::string& streamKey, const std::string& trackId)
{
    const Lock lock(*this);
    const auto sender = find(streamKey, trackId);
    if (sender == senders_.end())
    {
        return hostTrackUnknown;
    }
    (*sender)->end();
    return 0;
}

int LiveSession::ssrc(const std::string& streamKey, const std::string& trackId, int& ssrc)
{
    const Lock lock(*this);
    const auto sender = find(streamKey, trackId);
    if (sender == senders_.end())
    {
        return hostTrackUnknown;
    }
    ssrc = static_cast<int>((*sender)->ssrc());
    return 0;
}

bool LiveSession::firstPacket(const std::string& trackId, RTPPacketInfo& out)
{
    const Lock lock(*this);
    TrackSender* sender = find(trackId);
    return sender != nullptr && sender->firstPacket(out, videoSenderOf(*sender));
}

bool LiveSession::statistics(const std::string& trackId, TrackStatistics& out)
{
    const Lock lock(*this);
    const TrackSender* sender = find(trackId);
    if (sender == nullptr)
    {
        return false;
    }
    out = sender->statistics();
    return true;
}

bool LiveSession::connected()
{
    const Lock lock(*this);
    return std::any_of(senders_.begin(), senders_.end(),
                       [](const auto& sender) { return sender->hasConnection(); });
}

void LiveSession::end()
{
    Senders gone;  // destroyed after the lock
    const Lock lock(*this);
    gone.swap(senders_);
    for (const auto& sender : gone)
    {
        sender->end();
    }
}

void LiveSession::pump(const FreshUnit* fresh)
{
    // Each exchange that reads the other thread's request also orders the two threads' lock operations:
    // either the lock's holder sees the request, or this thread sees the lock free.
    do
    {
        pumpRequested_.exchange(true);
        if (!mutex_.tryLock())
        {
            return;
        }
        pumpRequested_.exchange(false);
        pumpLocked(fresh);
        mutex_.unlock();
    } while (pumpRequested_.exchange(false));
}

void LiveSession::noteFootprint()
{
    footprint_.clear();
    footprint_.add(senders_.data(), sizeof senders_.front());
    senders_.front()->addFootprint(footprint_);
}

LiveSession::Senders::iterator LiveSession::placeOf(const std::string& streamKey, const std::string& trackId)
{
    return std::find_if(senders_.begin(), senders_.end(),
                        [&](const auto& sender) { return sender->is(streamKey, trackId); });
}

LiveSession::Senders::iterator LiveSession::find(const std::string& streamKey, const std::string& trackId)
{
    const auto place = placeOf(streamKey, trackId);
    return place == senders_.end() || (*place)->ended() ? senders_.end() : place;
}

TrackSender* LiveSession::find(const std::string& trackId)
{
    const auto found =
        std::find_if(senders_.begin(), senders_.end(),
                     [&](const auto& sender) { return sender->trackId() == trackId && !sender->ended(); });
    return found == senders_.end() ? nullptr : found->get();
}

TrackSender* LiveSession::videoSenderOf(const TrackSender& sender)
{
    TrackSender* first = senders_.front().get();
    const bool leads = !sender.video() && first->video() && first->streamKey() == sender.streamKey();
    return leads ? first : nullptr;
}

void LiveSession::pumpLocked(const FreshUnit* fresh)
{
    // Tracks released one after the other start together, each with its report first.
    if (std::any_of(senders_.begin(), senders_.end(), [](const auto& sender) { return sender->held(); }))
    {
        return;
    }
    for (const auto& sender : senders_)
    {
        sender->reportStart(videoSenderOf(*sender));
    }
    // Audio that waited for this frame goes first: the transport flushes with the frame.
    const bool together = fresh != nullptr && !senders_.empty() && senders_.front()->takesNow(*fresh);
    for (std::size_t i = 1; together && i < senders_.size(); ++i)
    {
        senders_[i]->pump(fresh, videoSenderOf(*senders_[i]), true);
    }
    const std::size_t count = together ? 1 : senders_.size();
    for (std::size_t i = 0; i < count; ++i)
    {
        senders_[i]->pump(fresh, videoSenderOf(*senders_[i]), false);
    }
}

}  // namespace refhost
