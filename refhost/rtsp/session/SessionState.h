#pragma once
// Tested by tests/refhost/rtsp/session/SessionTrack_test.cpp.

#include "refhost/base/StateMachine.h"

namespace refhost
{

/// How far an RTSP session got.
///
/// | from   | to played              | to ended |
/// |--------|------------------------|----------|
/// | fresh  | a track plays          | end()    |
/// | played |                        | end()    |
/// | ended  | illegal                |          |
///
/// Nothing leads back to fresh. What its tracks do is SessionTrackState's.
enum class SessionState
{
    fresh,   ///< nothing of it played yet
    played,  ///< some track plays, or did
    ended    ///< without controller and tracks: operations answer 454
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
