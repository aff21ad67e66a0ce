#include "refhost/fragments/FragmentStreams.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "refhost/media/Device.h"

namespace refhost
{

TappedStream::TappedStream(const std::shared_ptr<StreamSource>& source, const HostClock& clock)
    : source_(source), fragments_(std::make_shared<FragmentStream>(clock))
{
    source->attachMedia(fragments_);
}

TappedStream::~TappedStream()
{
    if (const auto source = source_.lock())
    {
        source->detachMedia(fragments_.get());
    }
}

bool TappedStream::describe()
{
    const auto source = source_.lock();
    std::vector<SubMediaInfo> tracks;
    if (source == nullptr || source->describe(tracks) != StreamSource::Description::ready)
    {
        return false;
    }
    const auto has = [&](const char* kind)
    {
        return std::any_of(tracks.begin(), tracks.end(),
                           [kind](const SubMediaInfo& track) { return track.mediaType == kind; });
    };
    fragments_->expect({has("video"), has("audio")});
    return true;
}

FragmentViewer::FragmentViewer(std::shared_ptr<TappedStream> stream, bool audio, std::function<void()> wake)
    : stream_(std::move(stream)), source_(stream_->source())
{
    cursor_.wantsAudio = audio;
    if (source_ != nullptr)
    {
        source_->acquire();
    }
    subscription_ = stream_->fragments().subscribe(std::move(wake));
}

FragmentViewer::~FragmentViewer()
{
    stream_->fragments().unsubscribe(subscription_);
    if (source_ != nullptr)
    {
        source_->release();
    }
}

FragmentStream::Next FragmentViewer::read()
{
    if (!described_)
    {
        described_ = stream_->describe();
    }
    return stream_->fragments().read(cursor_);
}

std::shared_ptr<TappedStream> FragmentStreams::find(int cameraId, int streamId)
{
    const auto directory = Device::streams();
    const auto source = directory == nullptr ? nullptr : directory->find(cameraId, streamId);
    const std::uint64_t key =
        std::uint64_t{static_cast<std::uint32_t>(cameraId)} << 32U | static_cast<std::uint32_t>(streamId);
    const MutexLock lock(mutex_);
    if (source == nullptr)
    {
        streams_.erase(key);
        return nullptr;
    }
    std::shared_ptr<TappedStream>& stream = streams_[key];
    if (stream == nullptr || stream->source() != source)
    {
        // The first viewer, or the camera was replaced.
        stream = std::make_shared<TappedStream>(source, clock_);
    }
    return stream;
}

}  // namespace refhost
