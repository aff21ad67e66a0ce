#include "refhost/fragments/FragmentStreams.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "refhost/media/Device.h"

namespace refhost
{

TappedStream::TappedStream(const std::shared_ptr<StreamSource>& source, const HostClock& clock,
                           std::shared_ptr<WorkPool> pool)
    : source_(source),
      fragments_(std::make_shared<FragmentStream>(clock)),
      audio_(std::make_shared<BrowserAudio>(fragments_, std::move(pool)))
{
    source->attachMedia(audio_);
}

TappedStream::~TappedStream()
{
    if (const auto source = source_.lock())
    {
        source->detachMedia(audio_.get());
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
    if (audio)
    {
        stream_->audio().addListener();
    }
    subscription_ = stream_->fragments().subscribe(std::move(wake), audio);
}

FragmentViewer::~FragmentViewer()
{
    stream_->fragments().unsubscribe(subscription_);
    if (cursor_.wantsAudio)
    {
        stream_->audio().removeListener();
    }
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

FragmentStreams::FragmentStreams(const HostClock& clock)
    : clock_(clock),
      pool_(std::make_shared<WorkPool>(WorkPool::Options{1, Duration::zero(), "browser audio"}))
{
}

FragmentStreams::~FragmentStreams()
{
    // Streams that somebody still holds go on without it: no thread of the pool's may be the last to hold it.
    pool_->close();
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
        stream = std::make_shared<TappedStream>(source, clock_, pool_);
    }
    return stream;
}

}  // namespace refhost
