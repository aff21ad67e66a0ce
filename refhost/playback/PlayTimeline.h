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
/// After a gap in the recording or a seek the player's time goes on where it was (RFC 2326, appendix B).
/// Threads: one at a time.
class PlayTimeline
{
public:
    /// The recording goes on at `media`, wherever it was before.
    /// \param scale  seconds of the recording in a second of the player's time
    void jump(WallTime media, double scale);

    /// Changes the scale from `media` on.
    void rescale(WallTime media, double scale);

    /// Player's time of an instant of the present section; its begin for instants before.
    PlayTime at(WallTime media) const;

    /// Something was sent that is over at `media`: what comes after a jump starts behind it.
    void sentUntil(WallTime media);

    /// Where the next section would begin.
    PlayTime end() const
    {
        return end_;
    }

    double scale() const
    {
        return scale_;
    }

private:
    WallTime media_;  // an instant of the present section, and
    PlayTime play_;   // its player's time
    double scale_ = 1;
    PlayTime end_;
};

}  // namespace refhost
