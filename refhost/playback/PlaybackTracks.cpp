#include "refhost/playback/PlaybackTracks.h"

#include <algorithm>
#include <utility>

namespace refhost
{

PlaybackTracks::TrackPtr PlaybackTracks::find(const std::string& id) const
{
    const auto found = std::find_if(tracks_.begin(), tracks_.end(),
                                    [&id](const TrackPtr& track) { return track && track->id == id; });
    return found == tracks_.end() ? nullptr : *found;
}

void PlaybackTracks::add(TrackPtr track)
{
    TrackPtr& place = tracks_[track->video ? 0 : 1];
    place = std::move(track);
}

void PlaybackTracks::remove(const PlaybackTrack& track)
{
    tracks_[track.video ? 0 : 1].reset();
}

bool PlaybackTracks::anyPlaying() const
{
    return std::any_of(tracks_.begin(), tracks_.end(),
                       [](const TrackPtr& track) { return track && track->playing(); });
}

}  // namespace refhost
