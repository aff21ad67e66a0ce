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
/// Times of the recording are wall clock, nanoseconds since 1970; played backwards, `mediaNs` and `dueNs` of
/// a unit are mirrored (PlaybackSource::Request). Threads: its session's lock.
class PlaybackPump
{
public:
    /// \param settings, tracks  the session's; outlive this
    /// \param beginNs           what rangeBeginNs() is before anything plays
    /// \param endNs             where playing ends, before a place is found
    PlaybackPump(const PlaybackSettings& settings, const PlaybackTracks& tracks, std::int64_t beginNs,
                 std::int64_t endNs);

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
    std::int64_t positionNs() const;

    /// Where the last start() started.
    std::int64_t rangeBeginNs() const
    {
        return rangeBeginNs_;
    }

    /// Goes over to another place.
    /// \param first   the first unit there
    /// \param goesOn  a session that plays goes on by itself
    void moveTo(const PlaybackSource::Request& request, PlaybackUnit first, bool goesOn);

    /// Plays a track and fills in its first packet.
    /// \param startNs  where the presentation's time is 0: what lies before is not told as a begin
    /// Requires: paused or playing.
    void start(PlaybackTrack& track, std::int64_t startNs);
    /// Stops sending a track; playing pauses with the last one.
    void stop(PlaybackTrack& track);
    /// The same, with BYE and without a transport afterwards.
    void end(PlaybackTrack& track);
    /// Pauses all tracks when this instant is reached; at once where it lies behind.
    void pauseAt(std::int64_t ns)
    {
        pauseAtNs_ = ns;
    }

    /// Sends what is due.
    /// \returns when to be called again, monotonic clock in milliseconds, or PlaybackWork::never
    std::int64_t run(std::int64_t nowMs);

private:
    /// When the head is due; nothing where the head was sent or left out.
    using Wait = std::optional<std::int64_t>;

    std::int64_t placeNs() const;
    std::int64_t stampNs(std::int64_t playNs) const;
    bool playing() const
    {
        return state_.is(PlaybackState::playing);
    }

    void halt(PlaybackState next);
    void requestReports();
    void breakTracks(bool discontinuity);
    void enterSection();
    Wait runHead(std::int64_t nowMs);
    void dropHead();
    bool leavesOut(const PlaybackUnit& unit, const PlaybackTrack& track) const;
    void prepareHead(PlaybackTrack& track);
    Wait send(PlaybackTrack& track, std::int64_t nowMs);
    std::int64_t finish(std::int64_t nowMs);

    const PlaybackSettings& settings_;
    const PlaybackTracks& tracks_;
    StateMachine<PlaybackState> state_{PlaybackState::unplaced};
    PlayMode mode_;
    PlaybackSource::Request reading_;
    ReadAhead readAhead_;
    PlaybackQueue& queue_;  // of readAhead_
    PlaybackPacer pacer_;
    std::uint32_t section_ = 0;     // of the last unit sent
    std::int64_t sentUntilNs_ = 0;  // in the order of playing
    std::int64_t placedAtNs_ = 0;   // player's time at the begin of the present place
    std::int64_t rangeBeginNs_;
    std::optional<std::int64_t> pauseAtNs_;
    std::int64_t byeNotBeforeMs_ = 0;
    std::int64_t togetherUntilMs_ = 0;  // units of a track that does not play yet wait up to here
};

}  // namespace refhost
