#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "refhost/rtsp/message/RtspStatus.h"
#include "refhost/rtsp/session/SessionTrack.h"

namespace refhost
{

/// The tracks that a client set up in one session, in the order of SETUP. Threads: its session's lock.
class SessionTracks
{
public:
    using Selection = std::vector<SessionTrack*>;

    /// \returns null when no track with this id was set up
    SessionTrack* find(std::string_view id) const;

    /// The tracks of a request: one, or all with an empty id.
    /// \param controller  also knows tracks that were not set up
    /// \param[out] out    filled in; empty at first
    /// \returns 200; 404 for a track that does not exist; 455 for one that is not set up, or when none is
    RtspStatus select(std::string_view id, SafePointer<IRTSPController>& controller, Selection& out) const;

    void add(std::unique_ptr<SessionTrack> track);
    void remove(const SessionTrack& track);
    void clear();

    bool empty() const
    {
        return tracks_.empty();
    }

    std::size_t size() const
    {
        return tracks_.size();
    }

    Selection all() const;

    /// Whether a track is interleaved in the connection.
    bool carriedBy(std::uint64_t connection) const;

    static bool anyPlaying(const Selection& tracks);
    static bool allPlaying(const Selection& tracks);
    static std::vector<std::string> idsOf(const Selection& tracks);

private:
    std::vector<std::unique_ptr<SessionTrack>> tracks_;
};

}  // namespace refhost
