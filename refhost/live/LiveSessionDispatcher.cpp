#include "refhost/live/LiveSessionDispatcher.h"

#include <atomic>
#include <utility>

#include "refhost/base/HostStatus.h"
#include "refhost/base/Mutex.h"
#include "refhost/live/LiveDispatcher.h"
#include "refhost/live/LiveSession.h"
#include "refhost/live/SessionShards.h"

namespace refhost
{

struct LiveSessionDispatcher::Impl
{
    struct Entry
    {
        std::shared_ptr<LiveSession> session;  // null: none
        std::string streamKey;
    };

    using Sessions = SessionShards<Entry>;

    explicit Impl(std::shared_ptr<LiveStreams> liveStreams) : streams(std::move(liveStreams)) {}

    Entry find(const std::string& sessionId)
    {
        Sessions::Shard& shard = sessions.of(sessionId);
        const MutexLock guard(shard.mutex);
        const auto found = shard.entries.find(sessionId);
        return found == shard.entries.end() ? Entry() : found->second;
    }

    /// \returns false when the id has a session already
    bool insert(const std::string& sessionId, Entry entry)
    {
        Sessions::Shard& shard = sessions.of(sessionId);
        const MutexLock guard(shard.mutex);
        const bool fresh = shard.entries.emplace(sessionId, std::move(entry)).second;
        count.fetch_add(fresh ? 1 : 0, std::memory_order_relaxed);
        return fresh;
    }

    void endUnconnected(const std::string& sessionId, const Entry& entry)
    {
        if (entry.session->connected())
        {
            return;
        }
        {
            Sessions::Shard& shard = sessions.of(sessionId);
            const MutexLock guard(shard.mutex);
            const auto found = shard.entries.find(sessionId);
            if (found != shard.entries.end() && found->second.session == entry.session)
            {
                shard.entries.erase(found);
                count.fetch_sub(1, std::memory_order_relaxed);
            }
        }
        entry.session->end();
    }

    const std::shared_ptr<LiveStreams> streams;
    Sessions sessions;
    std::atomic<std::size_t> count{0};
};

LiveSessionDispatcher& LiveSessionDispatcher::instance()
{
    static LiveSessionDispatcher* const dispatcher =
        new LiveSessionDispatcher(LiveDispatcher::instance().streams());
    return *dispatcher;
}

LiveSessionDispatcher::LiveSessionDispatcher(std::shared_ptr<LiveStreams> streams)
    : impl_(std::make_unique<Impl>(std::move(streams)))
{
}

LiveSessionDispatcher::~LiveSessionDispatcher() = default;

bool LiveSessionDispatcher::has(const std::string& sessionId)
{
    return impl_->find(sessionId).session != nullptr;
}

int LiveSessionDispatcher::initSession(const std::string& sessionId, int cameraId, int streamId,
                                       const MediaInfo& info, int payloadSize)
{
    const auto stream = impl_->streams->find(cameraId, streamId);
    if (!stream)
    {
        return hostStreamUnknown;
    }
    const Impl::Entry entry{std::make_shared<LiveSession>(), LiveStreams::key(cameraId, streamId)};
    for (const SubMediaInfo& track : info.getAllSubMediaInfo())
    {
        if (!track.getAudioBackInfoFlag())
        {
            entry.session->add(entry.streamKey, track, stream, payloadSize);
        }
    }
    if (!impl_->insert(sessionId, entry))
    {
        entry.session->end();
    }
    return 0;
}

int LiveSessionDispatcher::addConnection(const std::string& sessionId, const std::string& trackId,
                                         const SafePointer<IConnection>& connection)
{
    const Impl::Entry entry = impl_->find(sessionId);
    if (!entry.session)
    {
        return hostTrackUnknown;
    }
    const int status = entry.session->connect(entry.streamKey, trackId, connection);
    if (status != 0)
    {
        impl_->endUnconnected(sessionId, entry);
    }
    return status;
}

int LiveSessionDispatcher::play(const std::string& sessionId, const std::string& trackId)
{
    const Impl::Entry entry = impl_->find(sessionId);
    return entry.session ? entry.session->play(entry.streamKey, trackId) : hostTrackUnknown;
}

int LiveSessionDispatcher::pause(const std::string& sessionId, const std::string& trackId)
{
    const Impl::Entry entry = impl_->find(sessionId);
    return entry.session ? entry.session->pause(entry.streamKey, trackId) : hostTrackUnknown;
}

int LiveSessionDispatcher::remove(const std::string& sessionId, const std::string& trackId)
{
    const Impl::Entry entry = impl_->find(sessionId);
    if (!entry.session)
    {
        return hostTrackUnknown;
    }
    const int status = entry.session->endTrack(entry.streamKey, trackId);
    if (status == 0)
    {
        impl_->endUnconnected(sessionId, entry);
    }
    return status;
}

int LiveSessionDispatcher::getSsrc(const std::string& sessionId, const std::string& trackId, int& ssrc)
{
    const Impl::Entry entry = impl_->find(sessionId);
    return entry.session ? entry.session->ssrc(entry.streamKey, trackId, ssrc) : hostTrackUnknown;
}

bool LiveSessionDispatcher::firstPacketOfPlay(const std::string& sessionId, const std::string& trackId,
                                              RTPPacketInfo& out)
{
    const Impl::Entry entry = impl_->find(sessionId);
    return entry.session && entry.session->firstPacket(trackId, out);
}

bool LiveSessionDispatcher::statistics(const std::string& sessionId, const std::string& trackId,
                                       TrackStatistics& out)
{
    const Impl::Entry entry = impl_->find(sessionId);
    return entry.session && entry.session->statistics(trackId, out);
}

std::size_t LiveSessionDispatcher::sessionCount() const
{
    return impl_->count.load(std::memory_order_relaxed);
}

}  // namespace refhost
