#pragma once

#include "refhost/base/StateMachine.h"

namespace refhost
{

/// The state of one track of a live session.
///
/// | from      | to starting | to announced             | to running             | to paused | to ended |
/// |-----------|-------------|--------------------------|------------------------|-----------|----------|
/// | idle      | play()      | illegal                  | illegal                | illegal   | end()    |
/// | starting  |             | its first unit was found | illegal                | pause()   | illegal  |
/// | announced | illegal     |                          | the first unit is sent | pause()   | illegal  |
/// | running   | illegal     | illegal                  |                        | pause()   | illegal  |
/// | paused    | play()      | illegal                  | illegal                |           | end()    |
///
/// end() of a playing track pauses it first. Ended is final; nothing leads back to idle.
enum class SenderState
{
    idle,       ///< never played
    starting,   ///< waits for a unit to start from
    announced,  ///< the first unit is chosen and must not be skipped: RTP-Info names it
    running,
    paused,
    ended
};

constexpr auto tableOf(SenderState)
{
    using S = SenderState;
    return StateTable<S, 6>{"track sender",
                            {{
                                {S::idle, "idle", anyOf(S::starting, S::ended)},
                                {S::starting, "starting", anyOf(S::announced, S::paused)},
                                {S::announced, "announced", anyOf(S::running, S::paused)},
                                {S::running, "running", anyOf(S::paused)},
                                {S::paused, "paused", anyOf(S::starting, S::ended)},
                                {S::ended, "ended", anyOf()},
                            }}};
}

/// How a playing track follows its stream; keepingUp at each play().
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

constexpr auto tableOf(SenderFlow)
{
    using F = SenderFlow;
    return StateTable<F, 3>{"flow of a track sender",
                            {{
                                {F::keepingUp, "keeping up", anyOf(F::congested, F::waitingForKeyFrame)},
                                {F::congested, "congested", anyOf(F::keepingUp, F::waitingForKeyFrame)},
                                {F::waitingForKeyFrame, "waiting for a key frame", anyOf(F::keepingUp)},
                            }}};
}

}  // namespace refhost
