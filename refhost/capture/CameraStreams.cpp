#include "refhost/capture/CameraStreams.h"

#include <gst/gst.h>

#include <algorithm>

#include "refhost/base/ChangeSignal.h"
#include "refhost/media/BackChannel.h"

namespace refhost
{

namespace
{

/// Max time that all sources together may take to end.
constexpr std::chrono::milliseconds maxEndTime(1500);

}  // namespace

CameraStream::Options CameraStreams::usualOptions(const ServerConfig& config)
{
    CameraStream::Options options;
    options.linger = std::chrono::seconds(config.linger);
    return options;
}

CameraStreams::CameraStreams(const ServerConfig& config) : CameraStreams(config, usualOptions(config)) {}

CameraStreams::CameraStreams(const ServerConfig& config, const CameraStream::Options& options)
{
    gst_init(nullptr, nullptr);
    makeThreads();
    const auto changed = [] { ChangeSignal::instance().announce(); };
    for (const CameraConfig& camera : config.cameras)
    {
        if (const auto track = backChannelOf(camera.talkBack))
        {
            backChannels_[camera.id] = *track;
        }
        CameraStream::Options own = options;
        own.serverClock = camera.clock == "server";
        own.cameraId = camera.id;
        for (const StreamConfig& stream : camera.streams)
        {
            streams_[{camera.id, stream.id}] =
                std::make_shared<CameraStream>(stream, camera.streamName(stream.id), own, queue_, changed);
        }
    }
}

CameraStreams::~CameraStreams()
{
    // All at once: the program's end waits for it.
    for (const auto& [key, stream] : streams_)
    {
        stream->close();
    }
    const auto deadline = std::chrono::steady_clock::now() + maxEndTime;
    for (const auto& [key, stream] : streams_)
    {
        stream->awaitEnd(deadline);
    }
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
    return static_cast<std::size_t>(std::count_if(streams_.begin(), streams_.end(),
                                                  [](const auto& each) { return each.second->isRunning(); }));
}

std::shared_ptr<StreamSource> CameraStreams::find(int cameraId, int streamId)
{
    const auto found = streams_.find({cameraId, streamId});
    return found == streams_.end() ? nullptr : found->second;
}

bool CameraStreams::describeBackChannel(int cameraId, SubMediaInfo& out)
{
    const auto found = backChannels_.find(cameraId);
    if (found == backChannels_.end())
    {
        return false;
    }
    out = found->second;
    return true;
}

}  // namespace refhost
