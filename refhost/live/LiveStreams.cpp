#include "refhost/live/LiveStreams.h"

#include <utility>

#include "refhost/media/Device.h"

namespace refhost
{

LiveStreams::LiveStreams(const LiveSettings& settings) : settings_(settings) {}

void LiveStreams::configure(const LiveSettings& settings, Starts starts)
{
    const MutexLock guard(mutex_);
    settings_ = settings;
    starts_ = std::move(starts);
}

void LiveStreams::forget(int cameraId, int streamId)
{
    std::shared_ptr<LiveStream> forgotten;
    const MutexLock guard(mutex_);
    const auto found = streams_.find(key(cameraId, streamId));
    if (found != streams_.end())
    {
        forgotten = std::move(found->second);
        streams_.erase(found);
    }
}

std::shared_ptr<LiveStream> LiveStreams::find(int cameraId, int streamId)
{
    const auto directory = Device::streams();
    const auto source = directory ? directory->find(cameraId, streamId) : nullptr;
    if (!source)
    {
        return nullptr;
    }
    std::shared_ptr<LiveStream> former;
    const MutexLock guard(mutex_);
    LiveSettings settings = settings_;
    const auto own = starts_.find(key(cameraId, streamId));
    settings.start = own == starts_.end() ? settings.start : own->second;
    std::shared_ptr<LiveStream>& stream = streams_[key(cameraId, streamId)];
    // Another source with the same key: the device was set up again. Another start: the configuration was read again.
    if (!stream || stream->source() != source || !(stream->settings().start == settings.start))
    {
        former = std::exchange(stream, std::make_shared<LiveStream>(source, settings));
    }
    return stream;
}

std::string LiveStreams::key(int cameraId, int streamId)
{
    return std::to_string(cameraId) + "/" + std::to_string(streamId);
}

}  // namespace refhost
