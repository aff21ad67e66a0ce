#pragma once
// Tested by tests/refhost/rtsp/session/SessionTrack_test.cpp.

#include "refhost/base/StateMachine.h"

namespace refhost
{

/// The state of an RTSP session.
///
/// | from   | to played              | to ended |
/// |--------|------------------------|----------|
/// | fresh  | a track plays          | end()    |
/// | played |                        | end()    |
/// | ended  | illegal                |          |
///
/// Nothing leads back to fresh. SessionTrackState has the states of its tracks.
enum class SessionState
{
    fresh,   ///< no track has played
    played,  ///< some track plays or has played
    ended    ///< without controller and tracks: operations return 454
};

constexpr auto tableOf(SessionState)
{
    using S = SessionState;
    return StateTable<S, 3>{"RTSP session",
                            {{
                                {S::fresh, "fresh", anyOf(S::played, S::ended)},
                                {S::played, "played", anyOf(S::ended)},
                                {S::ended, "ended", anyOf()},
                            }}};
}

}  // namespace refhost
