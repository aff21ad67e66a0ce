#pragma once

#include "refhost/base/StateMachine.h"

namespace refhost
{

/// The state of an RtspConnection.
///
/// | state     | receives     | because                                                    | then                          |
/// |-----------|--------------|------------------------------------------------------------|-------------------------------|
/// | serving   | yes          | requests are handled as they come                          | deferred, congested, draining |
/// | deferred  | no           | a request waits for its stream, or after wrong passwords   | serving, to try it again      |
/// | congested | no           | the client owes the reading of responses                   | serving, when it has read     |
/// | draining  | and drops it | the last response is queued                                |                               |
/// | closing   | no           | the stream ended or failed                                 |                               |
/// | closed    | no           | nothing of it is left                                      |                               |
///
/// Every state may also change to a later one of `closing` and `closed`. A congested connection may have a
/// deferred request.
enum class ConnectionState
{
    serving,
    deferred,
    congested,
    draining,
    closing,
    closed
};

constexpr auto tableOf(ConnectionState)
{
    using S = ConnectionState;
    return StateTable<S, 6>{
        "RTSP connection",
        {{
            {S::serving, "serving", anyOf(S::deferred, S::congested, S::draining, S::closing, S::closed)},
            {S::deferred, "deferred", anyOf(S::serving, S::closing, S::closed)},
            {S::congested, "congested", anyOf(S::serving, S::closing, S::closed)},
            {S::draining, "draining", anyOf(S::closing, S::closed)},
            {S::closing, "closing", anyOf(S::closed)},
            {S::closed, "closed", anyOf()},
        }}};
}

}  // namespace refhost
