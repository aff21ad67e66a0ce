#include "refhost/live/LiveDispatcher.h"

#include <array>
#include <atomic>
#include <charconv>
#include <functional>
#include <mutex>
#include <unordered_map>

#include "refhost/base/HostStatus.h"
#include "refhost/device/Device.h"
#include "refhost/live/LiveSession.h"
#include "refhost/live/LiveStream.h"

namespace refhost
{
namespace
{

/// Reads "<camera>/<stream>". \returns false for anything else
bool readStreamKey(const std::string& key, int& camera, int& stream)
{
    const char* end = key.data() + key.size();
    const auto first = std::from_chars(key.data(), end, camera);
    if (first.ec != std::errc() || first.ptr == end || *first.ptr != '/')
    {
        return false;
    }
    const auto second = std::from_chars(first.ptr + 1, end, stream);
    return second.ec == std::errc() && second.ptr == end;
}

}  // namespace

struct LiveDispatcher::Impl
{
    struct Entry
    {
        std::shared_ptr<LiveSession> session;
        int tracks = 0;  // with those that are just being added
    };

    /// Sessions come and go on all threads: a few locks instead of one.
    struct Shard
    {
        mutable std::mutex mutex;
        std::unordered_map<std::string, Entry> sessions;
    };

    Shard& shardOf(const std::string& sessionId)
    {
        return shards[std::hash<std::string>()(sessionId) % shards.size()];
    }

    std::shared_ptr<LiveSession> find(const std::string& sessionId)
    {
        Shard& shard = shardOf(sessionId);
        const std::lock_guard<std::mutex> guard(shard.mutex);
        const auto found = shard.sessions.find(sessionId);
        return found == shard.sessions.end() ? nullptr : found->second.session;
    }

    std::shared_ptr<LiveSession> addTrack(const std::string& sessionId)
    {
        Shard& shard = shardOf(sessionId);
        const std::lock_guard<std::mutex> guard(shard.mutex);
        Entry& entry = shard.sessions[sessionId];
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
        Shard& shard = shardOf(sessionId);
        const std::lock_guard<std::mutex> guard(shard.mutex);
        const auto found = shard.sessions.find(sessionId);
        tracks.fetch_sub(1, std::memory_order_relaxed);
        if (--found->second.tracks == 0)
        {
            shard.sessions.erase(found);
        }
    }

    std::shared_ptr<LiveStream> streamOf(const std::string& streamKey);

    LiveSettings settings;  // guarded by streamsMutex, as the streams
    std::mutex streamsMutex;
    std::unordered_map<std::string, std::shared_ptr<LiveStream>> streams;
    std::array<Shard, 32> shards;
    std::atomic<std::size_t> tracks{0};
};

std::shared_ptr<LiveStream> LiveDispatcher::Impl::streamOf(const std::string& streamKey)
{
    int camera = 0;
    int number = 0;
    const auto directory = Device::streams();
    if (!directory || !readStreamKey(streamKey, camera, number))
    {
        return nullptr;
    }
    const auto source = directory->find(camera, number);
    if (!source)
    {
        return nullptr;
    }
    const std::lock_guard<std::mutex> guard(streamsMutex);
    std::shared_ptr<LiveStream>& stream = streams[streamKey];
    // Another source under the same key: the device was set up anew.
    if (!stream || stream->source() != source)
    {
        stream = std::make_shared<LiveStream>(source, settings);
    }
    return stream;
}

LiveDispatcher& LiveDispatcher::instance()
{
    // Never destroyed: connections may be served until the very end of the process.
    static LiveDispatcher* const dispatcher = new LiveDispatcher(LiveSettings());
    return *dispatcher;
}

LiveDispatcher::LiveDispatcher(const LiveSettings& settings) : impl_(std::make_unique<Impl>())
{
    impl_->settings = settings;
}

LiveDispatcher::~LiveDispatcher() = default;

void LiveDispatcher::configure(const LiveSettings& settings)
{
    const std::lock_guard<std::mutex> guard(impl_->streamsMutex);
    impl_->settings = settings;
}

int LiveDispatcher::initTrack(const std::string& streamKey, const std::string& sessionId,
                              const std::string& trackId, const SubMediaInfo& info, int payloadSize)
{
    const auto stream = impl_->streamOf(streamKey);
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
