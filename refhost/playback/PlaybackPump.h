#pragma once

#include <cstdint>
#include <optional>

#include "refhost/playback/PlayMode.h"
#include "refhost/playback/PlaybackPacer.h"
#include "refhost/playback/PlaybackSettings.h"
#include "refhost/playback/PlaybackSource.h"
#include "refhost/playback/PlaybackState.h"
#include "refhost/playback/PlaybackTracks.h"
#include "refhost/playback/ReadAhead.h"

namespace refhost
{

/// Sends what a session has read, each unit when it is due, and knows where playing stands.
///
/// Played backwards, `media` and `due` of a unit are mirrored (PlaybackSource::Request). Threads: its session's lock.
class PlaybackPump
{
public:
    /// \param settings, tracks  the session's; outlive this
    /// \param begin             what rangeBegin() is before anything plays
    /// \param end               where playing ends, before a place is found
    PlaybackPump(const PlaybackSettings& settings, const PlaybackTracks& tracks, WallTime begin,
                 WallTime end);

    PlaybackState state() const
    {
        return state_.state();
    }

    const PlayMode& mode() const
    {
        return mode_;
    }

    void setKind(int kind)
    {
        mode_.kind = kind;
    }

    /// Takes effect at once.
    void setSpeed(const PlaySpeed& speed);

    /// What is read now.
    const PlaybackSource::Request& reading() const
    {
        return reading_;
    }

    ReadAhead& readAhead()
    {
        return readAhead_;
    }

    /// What is read serves the present mode.
    bool readsForMode() const;
    /// What is read serves the present mode and has this track.
    bool readsFor(const PlaybackTrack& track) const;

    /// Where the recording goes on.
    WallTime position() const;

    /// Where the last start() started.
    WallTime rangeBegin() const
    {
        return rangeBegin_;
    }

    /// Goes over to another place.
    /// \param first   the first unit there
    /// \param goesOn  a session that plays goes on by itself
    void moveTo(const PlaybackSource::Request& request, PlaybackUnit first, bool goesOn);

    /// Plays a track and fills in its first packet.
    /// \param timeZero  where the presentation's time is 0: what lies before is not told as a begin
    /// Requires: paused or playing.
    void start(PlaybackTrack& track, WallTime timeZero);
    /// Stops sending a track; playing pauses with the last one.
    void stop(PlaybackTrack& track);
    /// The same, with BYE and without a transport afterwards.
    void end(PlaybackTrack& track);
    /// Pauses all tracks when this instant is reached; at once where it lies behind.
    void pauseAt(WallTime instant)
    {
        pauseAt_ = instant;
    }

    /// Sends what is due.
    /// \returns when to be called again, or PlaybackWork::never
    MonotonicTime run(MonotonicTime now);

private:
    /// When the head is due; nothing where the head was sent or left out.
    using Wait = std::optional<MonotonicTime>;

    WallTime place() const;
    PlayTime stamped(PlayTime play) const;
    bool playing() const
    {
        return state_.is(PlaybackState::playing);
    }

    void halt(PlaybackState next);
    void requestReports();
    void breakTracks(bool discontinuity);
    void enterRange();
    Wait runHead(MonotonicTime now);
    void dropHead();
    bool leavesOut(const PlaybackUnit& unit, const PlaybackTrack& track) const;
    void prepareHead(PlaybackTrack& track);
    Wait send(PlaybackTrack& track, MonotonicTime now);
    MonotonicTime finish(MonotonicTime now);

    const PlaybackSettings& settings_;
    const PlaybackTracks& tracks_;
    StateMachine<PlaybackState> state_{PlaybackState::unplaced};
    PlayMode mode_;
    PlaybackSource::Request reading_;
    ReadAhead readAhead_;
    PlaybackQueue& queue_;  // of readAhead_
    PlaybackPacer pacer_;
    std::uint32_t range_ = 0;  // of the last unit sent
    WallTime sentUntil_;       // in the order of playing
    PlayTime placedAt_;        // player's time at the begin of the present place
    WallTime rangeBegin_;
    std::optional<WallTime> pauseAt_;
    MonotonicTime earliestBye_;
    MonotonicTime togetherUntil_;  // units of a track that does not play yet wait up to here
};

}  // namespace refhost
