#include "refhost/rtsp/session/SessionTracks.h"

#include <algorithm>
#include <utility>

#include "refhost/rtsp/session/DescribedTracks.h"

namespace refhost
{

SessionTrack* SessionTracks::find(std::string_view id) const
{
    const auto found =
        std::find_if(tracks_.begin(), tracks_.end(), [id](const auto& track) { return track->id == id; });
    return found == tracks_.end() ? nullptr : found->get();
}

RtspStatus SessionTracks::select(std::string_view id, SafePointer<IRTSPController>& controller,
                                 Selection& out) const
{
    if (id.empty())
    {
        out = all();
        return out.empty() ? rtspInvalidState : rtspOk;
    }
    SessionTrack* const track = find(id);
    if (track == nullptr)
    {
        SubMediaInfo described;
        return DescribedTracks(controller).find(std::string(id), described) ? rtspInvalidState : rtspNotFound;
    }
    out.push_back(track);
    return rtspOk;
}

void SessionTracks::add(std::unique_ptr<SessionTrack> track)
{
    tracks_.push_back(std::move(track));
}

void SessionTracks::remove(const SessionTrack& track)
{
    tracks_.erase(std::find_if(tracks_.begin(), tracks_.end(),
                               [&track](const auto& other) { return other.get() == &track; }));
}

void SessionTracks::clear()
{
    tracks_.clear();
}

SessionTracks::Selection SessionTracks::all() const
{
    Selection found;
    found.reserve(tracks_.size());
    for (const auto& track : tracks_)
    {
        found.push_back(track.get());
    }
    return found;
}

bool SessionTracks::carriedBy(std::uint64_t connection) const
{
    return std::any_of(tracks_.begin(), tracks_.end(),
                       [connection](const auto& track) { return track->delivery.connection == connection; });
}

bool SessionTracks::anyPlaying(const Selection& tracks)
{
    return std::any_of(tracks.begin(), tracks.end(),
                       [](const SessionTrack* track) { return track->playing(); });
}

bool SessionTracks::allPlaying(const Selection& tracks)
{
    return std::all_of(tracks.begin(), tracks.end(),
                       [](const SessionTrack* track) { return track->playing(); });
}

std::vector<std::string> SessionTracks::idsOf(const Selection& tracks)
{
    std::vector<std::string> ids;
    ids.reserve(tracks.size());
    for (const SessionTrack* track : tracks)
    {
        ids.push_back(track->id);
    }
    return ids;
}

}  // namespace refhost
