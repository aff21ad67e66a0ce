#include "refhost/capture/CameraStreams.h"

#include <gst/gst.h>

#include <algorithm>

#include "refhost/base/ChangeSignal.h"
#include "refhost/config/ConfigChanges.h"
#include "refhost/media/BackChannel.h"

namespace refhost
{

namespace
{

/// Max time that all sources together may take to end.
constexpr std::chrono::milliseconds maxEndTime(1500);

bool usesServerClock(const CameraConfig& camera)
{
    return camera.clock == "server";
}

bool endsWhenAway(const CameraConfig& camera)
{
    return camera.away == "end";
}

}  // namespace

CameraStream::Options CameraStreams::usualOptions(const ServerConfig& config)
{
    CameraStream::Options options;
    options.linger = std::chrono::seconds(config.linger);
    options.frozenAfter = std::chrono::seconds(config.frozenAfter);
    return options;
}

CameraStreams::CameraStreams(const ServerConfig& config) : CameraStreams(config, usualOptions(config)) {}

CameraStreams::CameraStreams(const ServerConfig& config, const CameraStream::Options& options)
    : options_(options)
{
    gst_init(nullptr, nullptr);
    makeThreads();
    setConfig(config);
}

CameraStreams::~CameraStreams()
{
    std::vector<std::shared_ptr<CameraStream>> all = std::move(removed_);
    {
        const MutexLock guard(mutex_);
        for (const auto& [id, entry] : streams_)
        {
            all.push_back(entry.stream);
        }
    }
    // All at once: the program's end waits for it.
    for (const auto& stream : all)
    {
        stream->close();
    }
    const auto deadline = std::chrono::steady_clock::now() + maxEndTime;
    for (const auto& stream : all)
    {
        stream->awaitEnd(deadline);
    }
}

CameraStreams::Entry CameraStreams::makeStream(const CameraConfig& camera, const StreamConfig& stream) const
{
    const auto changed = [] { ChangeSignal::instance().announce(); };
    CameraStream::Options own = options_;
    own.serverClock = usesServerClock(camera);
    own.endsWhenAway = endsWhenAway(camera);
    own.cameraId = camera.id;
    return {std::make_shared<CameraStream>(stream, camera.streamName(stream.id), own, queue_, changed),
            camera, stream};
}

/// \returns whether what it sends may be described otherwise now
bool CameraStreams::change(Entry& entry, const CameraConfig& camera, const StreamConfig& stream) const
{
    const bool described = ConfigChanges::differIn(ReloadEffect::viewers, entry.config, stream);
    const bool restarts = described || ConfigChanges::differIn(ReloadEffect::source, entry.config, stream) ||
                          ConfigChanges::differIn(ReloadEffect::source, entry.camera, camera);
    entry.stream->change({stream, camera.streamName(stream.id), options_.linger, usesServerClock(camera),
                          endsWhenAway(camera)},
                         restarts);
    entry.camera = camera;
    entry.config = stream;
    return described;
}

CameraStreams::Changed CameraStreams::setConfig(const ServerConfig& config)
{
    options_.linger = usualOptions(config).linger;
    Changed changed;
    const MutexLock guard(mutex_);
    backChannels_.clear();
    std::map<Id, Entry> next;
    for (const CameraConfig& camera : config.cameras)
    {
        if (const auto track = backChannelOf(camera.talkBack))
        {
            backChannels_[camera.id] = *track;
        }
        for (const StreamConfig& stream : camera.streams)
        {
            const Id id(camera.id, stream.id);
            auto present = streams_.extract(id);
            if (present.empty())
            {
                next.emplace(id, makeStream(camera, stream));
                continue;
            }
            if (change(present.mapped(), camera, stream))
            {
                changed.described.insert(id);
            }
            next.insert(std::move(present));
        }
    }
    for (const auto& [id, entry] : streams_)
    {
        changed.removed.insert(id);
        removed_.push_back(entry.stream);
    }
    streams_.swap(next);
    return changed;
}

std::size_t CameraStreams::endRemoved()
{
    const auto isFree = [](const std::shared_ptr<CameraStream>& stream) { return stream.use_count() == 1; };
    removed_.erase(std::remove_if(removed_.begin(), removed_.end(), isFree), removed_.end());
    return removed_.size();
}

std::set<CameraStreams::Id> CameraStreams::away() const
{
    std::set<Id> found;
    const MutexLock guard(mutex_);
    for (const auto& [id, entry] : streams_)
    {
        if (entry.stream->isAway())
        {
            found.insert(id);
        }
    }
    return found;
}

std::size_t CameraStreams::count() const
{
    const MutexLock guard(mutex_);
    return streams_.size();
}

void CameraStreams::makeThreads()
{
    // Now, where a failure is reported, rather than at the first viewer.
    queue_->start();
    // GLib aborts the program if it cannot create the thread that spawns its pool threads.
    g_thread_pool_free(g_thread_pool_new([](gpointer, gpointer) {}, nullptr, 1, FALSE, nullptr), FALSE, TRUE);
}

std::size_t CameraStreams::running() const
{
    const MutexLock guard(mutex_);
    return static_cast<std::size_t>(std::count_if(
        streams_.begin(), streams_.end(), [](const auto& each) { return each.second.stream->isRunning(); }));
}

std::shared_ptr<StreamSource> CameraStreams::find(int cameraId, int streamId)
{
    const MutexLock guard(mutex_);
    const auto found = streams_.find({cameraId, streamId});
    return found == streams_.end() ? nullptr : found->second.stream;
}

bool CameraStreams::describeBackChannel(int cameraId, SubMediaInfo& out)
{
    const MutexLock guard(mutex_);
    const auto found = backChannels_.find(cameraId);
    if (found == backChannels_.end())
    {
        return false;
    }
    out = found->second;
    return true;
}

}  // namespace refhost
