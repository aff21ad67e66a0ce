#pragma once
// Tested by tests/refhost/playback/PlayTimeline_test.cpp.

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
    /// \param nowMs  monotonic clock, milliseconds
    /// \param nowNs  the same instant, nanoseconds
    void start(std::int64_t nowMs, std::int64_t nowNs, std::int64_t playNs);
    void stop();

    /// Changes how much faster than the clock the player's time passes, from now on.
    void setSpeed(double speed, std::int64_t nowMs, std::int64_t nowNs);

    /// When an instant of the player's time is due; meaningless while it stands still.
    std::int64_t dueMs(std::int64_t playNs) const;

    /// The player's time at an instant of the monotonic clock, for sender reports.
    std::int64_t playNs(std::int64_t nowNs) const;

private:
    PlayTimeline timeline_;
    bool running_ = false;
    double speed_ = 1;
    std::int64_t sinceMs_ = 0;
    std::int64_t sinceNs_ = 0;
    std::int64_t sincePlayNs_ = 0;
};

}  // namespace refhost
