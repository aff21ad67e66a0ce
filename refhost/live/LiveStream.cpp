#include "refhost/live/LiveStream.h"

#include <algorithm>

namespace refhost
{

LiveStream::LiveStream(const std::shared_ptr<StreamSource>& source, const LiveSettings& settings)
    : source_(source), settings_(settings)
{
}

LiveStream::~LiveStream()
{
    if (const auto source = source_.lock())
    {
        for (const Tap& tap : taps_)
        {
            source->detach(tap.track.get());
        }
    }
}

std::shared_ptr<LiveTrack> LiveStream::use(const std::string& trackId, bool video, int payloadSize)
{
    const MutexLock guard(mutex_);
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

std::shared_ptr<const LiveStream::TrackName> LiveStream::nameOf(const std::string& streamKey,
                                                                const std::string& trackId, int payloadSize)
{
    const MutexLock guard(mutex_);
    for (const auto& name : names_)
    {
        if (name->streamKey == streamKey && name->trackId == trackId && name->payloadSize == payloadSize)
        {
            return name;
        }
    }
    names_.erase(
        std::remove_if(names_.begin(), names_.end(), [](const auto& name) { return name.use_count() == 1; }),
        names_.end());
    names_.push_back(std::make_shared<const TrackName>(TrackName{streamKey, trackId, payloadSize}));
    return names_.back();
}

void LiveStream::leave(const LiveTrack& track)
{
    const MutexLock guard(mutex_);
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

}  // namespace refhost
