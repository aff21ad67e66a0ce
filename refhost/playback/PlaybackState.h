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

constexpr bool mayFollow(PlaybackState from, PlaybackState to)
{
    switch (from)
    {
        case PlaybackState::unplaced:
        case PlaybackState::ended:
            return to == PlaybackState::paused;
        case PlaybackState::paused:
            return to == PlaybackState::playing;
        case PlaybackState::playing:
            return to == PlaybackState::paused || to == PlaybackState::ended;
    }
    return false;
}

constexpr const char* nameOf(PlaybackState state)
{
    switch (state)
    {
        case PlaybackState::unplaced:
            return "unplaced";
        case PlaybackState::paused:
            return "paused";
        case PlaybackState::playing:
            return "playing";
        case PlaybackState::ended:
            return "ended";
    }
    return "?";
}

constexpr const char* machineOf(PlaybackState)
{
    return "playback session";
}

}  // namespace refhost
