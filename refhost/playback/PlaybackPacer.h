#pragma once
// Tested by tests/refhost/playback/PlayTimeline_test.cpp.

#include "refhost/playback/PlayTimeline.h"

namespace refhost
{

/// When which instant of the player's time is due: the clock of one playing session.
///
/// It runs from start() to stop(); the player's time stands still between. Threads: one at a time.
class PlaybackPacer
{
public:
    PlayTimeline& timeline()
    {
        return timeline_;
    }

    const PlayTimeline& timeline() const
    {
        return timeline_;
    }

    bool running() const
    {
        return running_;
    }

    /// The player's time is `play` now.
    void start(MonotonicTime now, PlayTime play);
    void stop();

    /// Changes how much faster than the clock the player's time passes, from now on.
    void setSpeed(double speed, MonotonicTime now);

    /// When an instant of the player's time is due, to the next whole millisecond, so that units that are due
    /// at nearly the same time leave in one go; meaningless while it stands still.
    MonotonicTime due(PlayTime play) const;

    /// The player's time at an instant of the monotonic clock, for sender reports.
    PlayTime at(MonotonicTime instant) const;

private:
    PlayTimeline timeline_;
    bool running_ = false;
    double speed_ = 1;
    MonotonicTime since_;
    PlayTime sincePlay_;
};

}  // namespace refhost
