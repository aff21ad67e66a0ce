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

/// Sends the units that a session has read, each when it is due, and knows the position of play.
///
/// Backwards, `media` and `due` of a unit are mirrored (PlaybackSource::Request). Threads: under the
/// session's lock.
class PlaybackPump
{
public:
    /// \param settings, tracks  the session's; outlive this
    /// \param begin             value of rangeBegin() before the first start()
    /// \param end               end of play until a position is found
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

    /// The request that units are read by.
    const PlaybackSource::Request& reading() const
    {
        return reading_;
    }

    ReadAhead& readAhead()
    {
        return readAhead_;
    }

    /// Whether the units that are read fit the present mode.
    bool readsForMode() const;
    /// Whether they fit the present mode and include this track.
    bool readsFor(const PlaybackTrack& track) const;

    /// Date of the next unit.
    WallTime position() const;

    /// Where the last start() started.
    WallTime rangeBegin() const
    {
        return rangeBegin_;
    }

    /// Moves to another position.
    /// \param first   the first unit there
    /// \param goesOn  a session that plays continues by itself
    void moveTo(const PlaybackSource::Request& request, PlaybackUnit first, bool goesOn);

    /// Plays a track and fills in its first packet.
    /// \param timeZero  date of position 0: rangeBegin() is not before it
    /// Requires: paused or playing.
    void start(PlaybackTrack& track, WallTime timeZero);
    /// Stops sending a track; the session pauses with its last one.
    void stop(PlaybackTrack& track);
    /// As stop(), then sends BYE and drops the transport.
    void end(PlaybackTrack& track);
    /// Pauses all tracks when this instant is reached; at once when it has passed.
    void pauseAt(WallTime instant)
    {
        pauseAt_ = instant;
    }

    /// Sends what is due.
    /// \returns when to be called again, or PooledWork::never
    MonotonicTime run(MonotonicTime now);

private:
    /// When the head is due; nothing when it was sent or skipped.
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
    PlayTime placedAt_;        // player's time at the present position's start
    WallTime rangeBegin_;
    std::optional<WallTime> pauseAt_;
    MonotonicTime earliestBye_;
    MonotonicTime togetherUntil_;  // until then units of a track that does not play yet wait
};

}  // namespace refhost
