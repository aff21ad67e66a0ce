#include "refhost/device/CameraStreams.h"

#include <gst/gst.h>

#include "refhost/audio/BackChannel.h"
#include "refhost/base/ChangeSignal.h"

namespace refhost
{

namespace
{

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
    const auto changed = [] { ChangeSignal::instance().announce(); };
    for (const CameraConfig& camera : config.cameras)
    {
        if (const auto track = backChannelOf(camera.talkBack))
        {
            backChannels_[camera.id] = *track;
        }
        for (const StreamConfig& stream : camera.streams)
        {
            streams_[{camera.id, stream.id}] =
                std::make_shared<CameraStream>(stream, camera.streamName(stream.id), options, changed);
        }
    }
}

CameraStreams::~CameraStreams() = default;

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
