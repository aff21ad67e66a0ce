#include "refhost/live/LiveDispatcher.h"

#include <algorithm>
#include <atomic>
#include <string_view>
#include <utility>

#include "refhost/base/Decimal.h"
#include "refhost/base/HostStatus.h"
#include "refhost/base/Mutex.h"
#include "refhost/live/LiveSession.h"
#include "refhost/live/SessionShards.h"

namespace refhost
{
namespace
{

/// Reads "<camera>/<stream>". \returns false for anything else
bool readStreamKey(const std::string& key, int& camera, int& stream)
{
    const std::string_view text = key;
    const std::size_t slash = std::min(text.find('/'), text.size());
    const auto first = parseDecimal<int>(text.substr(0, slash));
    const auto second = parseDecimal<int>(text.substr(std::min(slash + 1, text.size())));
    camera = first.value_or(0);
    stream = second.value_or(0);
    return first && second;
}

}  // namespace

struct LiveDispatcher::Impl
{
    struct Entry
    {
        std::shared_ptr<LiveSession> session;
        int tracks = 0;  // including those being added
    };

    using Sessions = SessionShards<Entry>;

    explicit Impl(std::shared_ptr<LiveStreams> liveStreams) : streams(std::move(liveStreams)) {}

    std::shared_ptr<LiveSession> find(const std::string& sessionId)
    {
        Sessions::Shard& shard = sessions.of(sessionId);
        const MutexLock guard(shard.mutex);
        const auto found = shard.entries.find(sessionId);
        return found == shard.entries.end() ? nullptr : found->second.session;
    }

    std::shared_ptr<LiveSession> addTrack(const std::string& sessionId)
    {
        Sessions::Shard& shard = sessions.of(sessionId);
        const MutexLock guard(shard.mutex);
        Entry& entry = shard.entries[sessionId];
        if (!entry.session)
        {
            entry.session = std::make_shared<LiveSession>();
        }
        ++entry.tracks;
        tracks.fetch_add(1, std::memory_order_relaxed);
        return entry.session;
    }

    void removeTrack(const std::string& sessionId)
    {
        Sessions::Shard& shard = sessions.of(sessionId);
        const MutexLock guard(shard.mutex);
        const auto found = shard.entries.find(sessionId);
        tracks.fetch_sub(1, std::memory_order_relaxed);
        if (--found->second.tracks == 0)
        {
            shard.entries.erase(found);
        }
    }

    const std::shared_ptr<LiveStreams> streams;
    Sessions sessions;
    std::atomic<std::size_t> tracks{0};
};

LiveDispatcher& LiveDispatcher::instance()
{
    // Never destroyed: connections may be served until the process ends.
    static LiveDispatcher* const dispatcher = new LiveDispatcher(LiveSettings());
    return *dispatcher;
}

LiveDispatcher::LiveDispatcher(const LiveSettings& settings)
    : impl_(std::make_unique<Impl>(std::make_shared<LiveStreams>(settings)))
{
}

LiveDispatcher::~LiveDispatcher() = default;

void LiveDispatcher::configure(const LiveSettings& settings, LiveStreams::Starts starts)
{
    impl_->streams->configure(settings, std::move(starts));
}

const std::shared_ptr<LiveStreams>& LiveDispatcher::streams() const
{
    return impl_->streams;
}

int LiveDispatcher::initTrack(const std::string& streamKey, const std::string& sessionId,
                              const std::string& trackId, const SubMediaInfo& info, int payloadSize)
{
    int camera = 0;
    int number = 0;
    const auto stream =
        readStreamKey(streamKey, camera, number) ? impl_->streams->find(camera, number) : nullptr;
    if (!stream)
    {
        return hostStreamUnknown;
    }
    SubMediaInfo named = info;
    named.trackId = trackId;
    const auto session = impl_->addTrack(sessionId);
    if (!session->add(streamKey, named, stream, payloadSize))
    {
        impl_->removeTrack(sessionId);
    }
    return 0;
}

int LiveDispatcher::addConnection(const std::string& streamKey, const std::string& sessionId,
                                  const std::string& trackId, const SafePointer<IConnection>& connection)
{
    const auto session = impl_->find(sessionId);
    return session ? session->connect(streamKey, trackId, connection) : hostTrackUnknown;
}

int LiveDispatcher::play(const std::string& streamKey, const std::string& sessionId,
                         const std::string& trackId)
{
    const auto session = impl_->find(sessionId);
    return session ? session->play(streamKey, trackId) : hostTrackUnknown;
}

int LiveDispatcher::pause(const std::string& streamKey, const std::string& sessionId,
                          const std::string& trackId)
{
    const auto session = impl_->find(sessionId);
    return session ? session->pause(streamKey, trackId) : hostTrackUnknown;
}

int LiveDispatcher::remove(const std::string& streamKey, const std::string& sessionId,
                           const std::string& trackId)
{
    const auto session = impl_->find(sessionId);
    const int status = session ? session->remove(streamKey, trackId) : hostTrackUnknown;
    if (status == 0)
    {
        impl_->removeTrack(sessionId);
    }
    return status;
}

int LiveDispatcher::getSsrc(const std::string& streamKey, const std::string& sessionId,
                            const std::string& trackId, int& ssrc)
{
    const auto session = impl_->find(sessionId);
    return session ? session->ssrc(streamKey, trackId, ssrc) : hostTrackUnknown;
}

bool LiveDispatcher::firstPacketOfPlay(const std::string& sessionId, const std::string& trackId,
                                       RTPPacketInfo& out)
{
    const auto session = impl_->find(sessionId);
    return session && session->firstPacket(trackId, out);
}

bool LiveDispatcher::statistics(const std::string& sessionId, const std::string& trackId,
                                TrackStatistics& out)
{
    const auto session = impl_->find(sessionId);
    return session && session->statistics(trackId, out);
}

std::size_t LiveDispatcher::trackCount() const
{
    return impl_->tracks.load(std::memory_order_relaxed);
}

}  // namespace refhost
