#include "refhost/capture/CameraStreams.h"

#include <gst/gst.h>

#include "refhost/base/ChangeSignal.h"
#include "refhost/media/BackChannel.h"

namespace refhost
{

namespace
{

/// How long all sources together may take to end.
constexpr std::chrono::milliseconds endTime(1500);

CameraStream::Options optionsOf(const ServerConfig& config)
{
    CameraStream::Options options;
    options.linger = std::chrono::seconds(config.linger);
    return options;
}

}  // namespace

CameraStreams::CameraStreams(const ServerConfig& config) : CameraStreams(config, optionsOf(config)) {}

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
        for (const StreamConfig& stream : camera.streams)
        {
            streams_[{camera.id, stream.id}] = std::make_shared<CameraStream>(
                stream, camera.streamName(stream.id), options, queue_, changed);
        }
    }
}

CameraStreams::~CameraStreams()
{
    // All at once, and none of them for long: who ends the program waits for it.
    for (const auto& [key, stream] : streams_)
    {
        stream->close();
    }
    const auto deadline = std::chrono::steady_clock::now() + endTime;
    for (const auto& [key, stream] : streams_)
    {
        stream->awaitEnd(deadline);
    }
}

void CameraStreams::makeThreads()
{
    // Now, where the system still has threads and a failure is told; nothing that they do later needs one.
    queue_->start();
    // GLib ends the program when it cannot make the thread that makes all others.
    g_thread_pool_free(g_thread_pool_new([](gpointer, gpointer) {}, nullptr, 1, FALSE, nullptr), FALSE, TRUE);
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
