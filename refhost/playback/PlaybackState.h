#pragma once

#include "refhost/base/StateMachine.h"

namespace refhost
{

/// Where a playback session stands. A seek goes on beside it: PendingSeek.
///
/// | from     | to paused                                 | to playing | to ended            |
/// |----------|-------------------------------------------|------------|---------------------|
/// | unplaced | the first place was found                 | illegal    | illegal             |
/// | paused   |                                           | play()     | illegal             |
/// | playing  | pause(); a new place; no track plays left |            | everything was sent |
/// | ended    | a new place was found                     | illegal    |                     |
///
/// Nothing leads back to unplaced.
enum class PlaybackState
{
    unplaced,  ///< nothing was read yet
    paused,    ///< there is a place to play from
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
