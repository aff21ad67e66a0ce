#pragma once

#include <array>
#include <memory>
#include <string>

#include "refhost/playback/PlaybackTrack.h"

namespace refhost
{

/// The tracks of a playback session: at most one of video and one of audio. Threads: its session's lock.
class PlaybackTracks
{
public:
    using TrackPtr = std::shared_ptr<PlaybackTrack>;

    /// \returns null where no track has this id
    TrackPtr find(const std::string& id) const;

    /// \returns null where there is none of this kind
    const TrackPtr& of(bool video) const
    {
        return tracks_[video ? 0 : 1];
    }

    /// Requires: there is none of its kind.
    void add(TrackPtr track);
    void remove(const PlaybackTrack& track);

    bool empty() const
    {
        return !tracks_[0] && !tracks_[1];
    }

    bool anyPlaying() const;

    /// Calls `visit` with every track.
    template <typename Visitor>
    void each(Visitor visit) const
    {
        for (const TrackPtr& track : tracks_)
        {
            if (track)
            {
                visit(*track);
            }
        }
    }

private:
    std::array<TrackPtr, 2> tracks_;  // video, audio
};

}  // namespace refhost
