#pragma once

#include <chrono>

#include "refhost/base/Times.h"

namespace refhost
{

/// The player's time, which counts from 0 and never goes back.
struct PlayerTag : ClockTag<PlayerTag, true>
{
};

/// An instant of the player's time.
using PlayTime = std::chrono::time_point<PlayerTag>;

/// How the time of a recording maps to the time of its player, for all tracks of a session.
///
/// The player's time continues after a gap in the recording and after a seek (RFC 2326, appendix B).
/// Threads: one at a time.
class PlayTimeline
{
public:
    /// Starts a new contiguous range at `media`.
    /// \param scale  seconds of the recording in a second of the player's time
    void jump(WallTime media, double scale);

    /// Changes the scale from `media` on.
    void rescale(WallTime media, double scale);

    /// Player's time of an instant of the present range; the range's begin for earlier instants.
    PlayTime at(WallTime media) const;

    /// Notes that a sent unit ends at `media`: the range after a jump starts behind it.
    void sentUntil(WallTime media);

    /// Where the next range would start.
    PlayTime end() const
    {
        return end_;
    }

    double scale() const
    {
        return scale_;
    }

private:
    WallTime media_;  // an instant of the present range
    PlayTime play_;   // of media_
    double scale_ = 1;
    PlayTime end_;
};

}  // namespace refhost
