#pragma once

#include "refhost/base/StateMachine.h"

namespace refhost
{

/// What an RtspClient waits for, and in which order that may change.
///
/// | state       | waits for                                   | then                                             |
/// |-------------|---------------------------------------------|--------------------------------------------------|
/// | idle        | start()                                     | connecting                                       |
/// | connecting  | a connection to the host                    | asking; describing, when OPTIONS was asked before |
/// | asking      | the answer to OPTIONS                       | describing; connecting, for a redirect or because the camera closed its connection |
/// | describing  | the answer to DESCRIBE                      | settingUp; connecting, as before                 |
/// | settingUp   | the answer to one SETUP after the other     | starting                                         |
/// | starting    | the answer to PLAY                          | playing                                          |
/// | playing     | media                                       |                                                  |
/// | tearingDown | the answer to TEARDOWN                      |                                                  |
/// | closed      | nothing                                     |                                                  |
///
/// A request that is sent again with a login does not change the state. Every state but `closed` may go to
/// `closed`; those that may have a session (settingUp, starting, playing) may go to tearingDown.
enum class RtspClientState
{
    idle,
    connecting,
    asking,
    describing,
    settingUp,
    starting,
    playing,
    tearingDown,
    closed
};

constexpr auto tableOf(RtspClientState)
{
    using S = RtspClientState;
    return StateTable<S, 9>{"RTSP client",
                            {{
                                {S::idle, "idle", anyOf(S::connecting, S::closed)},
                                {S::connecting, "connecting", anyOf(S::asking, S::describing, S::closed)},
                                {S::asking, "asking", anyOf(S::describing, S::connecting, S::closed)},
                                {S::describing, "describing", anyOf(S::settingUp, S::connecting, S::closed)},
                                {S::settingUp, "setting up", anyOf(S::starting, S::tearingDown, S::closed)},
                                {S::starting, "starting", anyOf(S::playing, S::tearingDown, S::closed)},
                                {S::playing, "playing", anyOf(S::tearingDown, S::closed)},
                                {S::tearingDown, "tearing down", anyOf(S::closed)},
                                {S::closed, "closed", anyOf()},
                            }}};
}

}  // namespace refhost
