#pragma once

#include "refhost/base/StateMachine.h"

namespace refhost
{

/// What one track of a live session does.
///
/// | from      | to starting | to announced             | to running             | to paused | to ended |
/// |-----------|-------------|--------------------------|------------------------|-----------|----------|
/// | idle      | play()      | illegal                  | illegal                | illegal   | end()    |
/// | starting  |             | its first unit was found | illegal                | pause()   | illegal  |
/// | announced | illegal     |                          | the first unit is sent | pause()   | illegal  |
/// | running   | illegal     | illegal                  |                        | pause()   | illegal  |
/// | paused    | play()      | illegal                  | illegal                |           | end()    |
///
/// end() of a track that plays pauses it first. Nothing leads out of ended, nor back to idle.
enum class SenderState
{
    idle,       ///< never played
    starting,   ///< looks for the first unit
    announced,  ///< the first unit is settled and may not be skipped: RTP-Info names it
    running,
    paused,
    ended
};

constexpr bool mayFollow(SenderState from, SenderState to)
{
    switch (from)
    {
        case SenderState::idle:
        case SenderState::paused:
            return to == SenderState::starting || to == SenderState::ended;
        case SenderState::starting:
            return to == SenderState::announced || to == SenderState::paused;
        case SenderState::announced:
            return to == SenderState::running || to == SenderState::paused;
        case SenderState::running:
            return to == SenderState::paused;
        case SenderState::ended:
            return false;
    }
    return false;
}

constexpr const char* nameOf(SenderState state)
{
    switch (state)
    {
        case SenderState::idle:
            return "idle";
        case SenderState::starting:
            return "starting";
        case SenderState::announced:
            return "announced";
        case SenderState::running:
            return "running";
        case SenderState::paused:
            return "paused";
        case SenderState::ended:
            return "ended";
    }
    return "?";
}

constexpr const char* machineOf(SenderState)
{
    return "track sender";
}

/// How a track that plays follows its stream; keepingUp at each play().
///
/// | from               | to keepingUp                         | to congested            | to waitingForKeyFrame |
/// |--------------------|--------------------------------------|-------------------------|-----------------------|
/// | keepingUp          |                                      | the transport is full   | its place left the ring |
/// | congested          | caught up, or skipped to a key frame |                         | nothing to skip to    |
/// | waitingForKeyFrame | a key frame came                     | illegal: nothing is sent |                      |
enum class SenderFlow
{
    keepingUp,
    congested,
    waitingForKeyFrame
};

constexpr bool mayFollow(SenderFlow from, SenderFlow to)
{
    return !(from == SenderFlow::waitingForKeyFrame && to == SenderFlow::congested);
}

constexpr const char* nameOf(SenderFlow flow)
{
    switch (flow)
    {
        case SenderFlow::keepingUp:
            return "keeping up";
        case SenderFlow::congested:
            return "congested";
        case SenderFlow::waitingForKeyFrame:
            return "waiting for a key frame";
    }
    return "?";
}

constexpr const char* machineOf(SenderFlow)
{
    return "flow of a track sender";
}

}  // namespace refhost
