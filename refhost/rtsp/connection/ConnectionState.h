#pragma once

#include "refhost/base/StateMachine.h"

namespace refhost
{

/// What an RtspConnection does with its client, and in which order that may change.
///
/// | state     | receives     | because                                                    | then                          |
/// |-----------|--------------|------------------------------------------------------------|-------------------------------|
/// | serving   | yes          | requests are handled as they come                          | deferred, congested, draining |
/// | deferred  | no           | a request waits for its stream                             | serving, to try it again      |
/// | congested | no           | the client owes the reading of responses                   | serving, when it has read     |
/// | draining  | and drops it | the last response is queued                                |                               |
/// | closing   | no           | the stream ended or failed                                 |                               |
/// | closed    | no           | nothing of it is left                                      |                               |
///
/// Every state may also go to a later one of `closing` and `closed`. A congested connection can have a request
/// that was deferred before.
enum class ConnectionState
{
    serving,
    deferred,
    congested,
    draining,
    closing,
    closed
};

constexpr bool mayFollow(ConnectionState from, ConnectionState to)
{
    switch (to)
    {
        case ConnectionState::serving:
            return from == ConnectionState::deferred || from == ConnectionState::congested;
        case ConnectionState::deferred:
        case ConnectionState::congested:
        case ConnectionState::draining:
            return from == ConnectionState::serving;
        case ConnectionState::closing:
            return from < ConnectionState::closing;
        case ConnectionState::closed:
            return from != ConnectionState::closed;
    }
    return false;
}

constexpr const char* nameOf(ConnectionState state)
{
    switch (state)
    {
        case ConnectionState::serving:
            return "serving";
        case ConnectionState::deferred:
            return "deferred";
        case ConnectionState::congested:
            return "congested";
        case ConnectionState::draining:
            return "draining";
        case ConnectionState::closing:
            return "closing";
        case ConnectionState::closed:
            return "closed";
    }
    return "?";
}

constexpr const char* machineOf(ConnectionState)
{
    return "RTSP connection";
}

}  // namespace refhost
