#pragma once

#include <cstdint>

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

    /// The player's time is `playNs` now.
    /// \param nowMs   monotonic clock, milliseconds
    /// \param wallNs  the same instant, nanoseconds since 1970
    void start(std::int64_t nowMs, std::int64_t wallNs, std::int64_t playNs);
    void stop();

    /// Changes how much faster than the clock the player's time passes, from now on.
    void setSpeed(double speed, std::int64_t nowMs, std::int64_t wallNs);

    /// When an instant of the player's time is due; meaningless while it stands still.
    std::int64_t dueMs(std::int64_t playNs) const;

    /// The player's time at an instant of the wall clock, for sender reports: when that clock is set while
    /// playing, they keep to the one before, so that tracks do not part whose reports come at other times.
    std::int64_t playNs(std::int64_t wallNs) const;

private:
    PlayTimeline timeline_;
    bool running_ = false;
    double speed_ = 1;
    std::int64_t sinceMs_ = 0;
    std::int64_t sinceWallNs_ = 0;
    std::int64_t sincePlayNs_ = 0;
};

}  // namespace refhost
