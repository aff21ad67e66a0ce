#pragma once

#include "refhost/base/StateMachine.h"

namespace refhost
{

/// State of a playback session. PendingSeek has that of a seek.
///
/// | from     | to paused                                 | to playing | to ended            |
/// |----------|-------------------------------------------|------------|---------------------|
/// | unplaced | the first position was found              | illegal    | illegal             |
/// | paused   |                                           | play()     | illegal             |
/// | playing  | pause(); a new position; no track plays   |            | everything was sent |
/// | ended    | a new position was found                  | illegal    |                     |
///
/// Nothing leads back to unplaced.
enum class PlaybackState
{
    unplaced,  ///< nothing was read yet
    paused,    ///< there is a position to play from
    playing,
    ended  ///< every track has sent BYE
};

constexpr auto tableOf(PlaybackState)
{
    using S = PlaybackState;
    return StateTable<S, 4>{"playback session",
                            {{
                                {S::unplaced, "unplaced", anyOf(S::paused)},
                                {S::paused, "paused", anyOf(S::playing)},
                                {S::playing, "playing", anyOf(S::paused, S::ended)},
                                {S::ended, "ended", anyOf(S::paused)},
                            }}};
}

}  // namespace refhost
