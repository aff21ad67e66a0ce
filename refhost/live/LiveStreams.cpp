#include "refhost/live/LiveStreams.h"

#include "refhost/device/Device.h"

namespace refhost
{

LiveStreams::LiveStreams(const LiveSettings& settings) : settings_(settings) {}

void LiveStreams::configure(const LiveSettings& settings)
{
    const std::lock_guard<std::mutex> guard(mutex_);
    settings_ = settings;
}

std::shared_ptr<LiveStream> LiveStreams::find(int cameraId, int streamId)
{
    const auto directory = Device::streams();
    const auto source = directory ? directory->find(cameraId, streamId) : nullptr;
    if (!source)
    {
        return nullptr;
    }
    const std::lock_guard<std::mutex> guard(mutex_);
    std::shared_ptr<LiveStream>& stream = streams_[key(cameraId, streamId)];
    // Another source under the same key: the device was set up anew.
    if (!stream || stream->source() != source)
    {
        stream = std::make_shared<LiveStream>(source, settings_);
    }
    return stream;
}

std::string LiveStreams::key(int cameraId, int streamId)
{
    return std::to_string(cameraId) + "/" + std::to_string(streamId);
}

}  // namespace refhost
