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

constexpr bool mayFollow(SessionState from, SessionState to)
{
    return to == SessionState::ended || (from == SessionState::fresh && to == SessionState::played);
}

constexpr const char* nameOf(SessionState state)
{
    switch (state)
    {
        case SessionState::fresh:
            return "fresh";
        case SessionState::played:
            return "played";
        case SessionState::ended:
            return "ended";
    }
    return "?";
}

constexpr const char* machineOf(SessionState)
{
    return "RTSP session";
}

}  // namespace refhost
