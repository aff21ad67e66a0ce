#include "refhost/live/LiveStream.h"

#include <algorithm>
#include <limits>

namespace refhost
{
namespace
{

/// A key picture that did not come within this time is asked for again.
constexpr std::int64_t keyRequestGapMs = 500;

}  // namespace

LiveStream::LiveStream(const std::shared_ptr<StreamSource>& source, const LiveSettings& settings)
    : source_(source), settings_(settings), keyRequestedMs_(std::numeric_limits<std::int64_t>::min() / 2)
{
}

std::shared_ptr<LiveTrack> LiveStream::use(const std::string& trackId, bool video, int payloadSize)
{
    const std::lock_guard<std::mutex> guard(mutex_);
    for (Tap& tap : taps_)
    {
        if (tap.trackId == trackId && tap.payloadSize == payloadSize)
        {
            ++tap.users;
            return tap.track;
        }
    }
    auto track = std::make_shared<LiveTrack>(video, past_, settings_);
    taps_.push_back({trackId, payloadSize, 1, track});
    if (const auto source = source_.lock())
    {
        source->attach(trackId, payloadSize, track);
    }
    return track;
}

void LiveStream::leave(const LiveTrack& track)
{
    const std::lock_guard<std::mutex> guard(mutex_);
    const auto own = std::find_if(taps_.begin(), taps_.end(),
                                  [&track](const Tap& tap) { return tap.track.get() == &track; });
    if (own == taps_.end() || --own->users > 0)
    {
        return;
    }
    const auto source = source_.lock();
    const std::string trackId = own->trackId;
    const auto idle = [&](const Tap& tap)
    {
        if (tap.users > 0 || tap.trackId != trackId || tap.track.get() == &track)
        {
            return false;
        }
        if (source)
        {
            source->detach(tap.track.get());
        }
        return true;
    };
    taps_.erase(std::remove_if(taps_.begin(), taps_.end(), idle), taps_.end());
}

void LiveStream::requestKeyFrame()
{
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        const std::int64_t now = settings_.clock->monotonicMs();
        const std::uint32_t keys = past_->keyPictures.load(std::memory_order_relaxed);
        if (keys == keysAtRequest_ && now - keyRequestedMs_ < keyRequestGapMs)
        {
            return;
        }
        keysAtRequest_ = keys;
        keyRequestedMs_ = now;
    }
    if (const auto source = source_.lock())
    {
        source->requestKeyFrame();
    }
}

}  // namespace refhost
