#pragma once
// Tested by tests/refhost/playback/PlayTimeline_test.cpp.

#include "refhost/playback/PlayTimeline.h"

namespace refhost
{

/// Maps the player's time of one session to the monotonic clock.
///
/// The player's time advances from start() to stop(). Threads: one at a time.
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

    /// Lets the player's time advance from `play`, which is at `now`.
    void start(MonotonicTime now, PlayTime play);
    void stop();

    /// Changes how much faster than the clock the player's time advances, from `now` on.
    void setSpeed(double speed, MonotonicTime now);

    /// When an instant of the player's time is due, rounded up to milliseconds, so that units that are due at
    /// nearly the same time are sent together. Requires: running().
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
