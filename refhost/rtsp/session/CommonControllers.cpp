#include "refhost/rtsp/session/CommonControllers.h"

#include <algorithm>
#include <tuple>

namespace refhost
{
namespace
{

auto valuesOf(const SubMediaInfo& track)
{
    return std::tie(track.trackId, track.mediaType, track.encodingName, track.formatParameters,
                    track.payloadType, track.clockRate, track.channels, track.bitRate, track.width,
                    track.height, track.frameRate);
}

bool isSame(const MediaInfo& one, const MediaInfo& other)
{
    const auto& tracks = one.getAllSubMediaInfo();
    const auto& others = other.getAllSubMediaInfo();
    return one.mediaUrl == other.mediaUrl &&
           std::equal(tracks.begin(), tracks.end(), others.begin(), others.end(),
                      [](const SubMediaInfo& track, const SubMediaInfo& same)
                      { return valuesOf(track) == valuesOf(same); });
}

bool hasBackChannel(const MediaInfo& described)
{
    const auto& tracks = described.getAllSubMediaInfo();
    return std::any_of(tracks.begin(), tracks.end(),
                       [](const SubMediaInfo& track) { return track.getAudioBackInfoFlag(); });
}

}  // namespace

SafePointer<IRTSPController> CommonControllers::common(const MediaRoutes::Route& route,
                                                       const SafePointer<IRTSPController>& fresh)
{
    MediaInfo described;
    if (fresh->getMediaInfo(described) != 0 || hasBackChannel(described))
    {
        return fresh;
    }
    const MutexLock guard(mutex_);
    const auto found = entries_.find(Key(&route, described.mediaUrl));
    if (found == entries_.end())
    {
        if (entries_.size() < maxKept)
        {
            entries_.emplace(Key(&route, described.mediaUrl), Entry{fresh, described});
        }
        return fresh;
    }
    if (!isSame(found->second.described, described))
    {
        found->second = {fresh, described};
    }
    return found->second.controller;
}

std::size_t CommonControllers::kept() const
{
    const MutexLock guard(mutex_);
    return entries_.size();
}

}  // namespace refhost
