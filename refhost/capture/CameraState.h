#pragma once
// Tested by tests/refhost/capture/CameraCondition_test.cpp.

#include "refhost/base/StateMachine.h"

namespace refhost
{

/// What a stream's source is found to be, as its last try or its media show.
///
/// | state       | meaning                                                              | leaves it by          |
/// |-------------|----------------------------------------------------------------------|-----------------------|
/// | idle        | nobody needs the source, so it does not run                          | a viewer, a recording |
/// | starting    | the first try, since it was idle, goes on                           | its outcome           |
/// | running     | frames come                                                          | silence, a failure    |
/// | frozen      | the source ran, and no frame came for some seconds                   | frames, a failure     |
/// | unreachable | no connection: no address, no answer, refused by the host            | the outcome of a try  |
/// | refused     | the camera answers and refuses: password, path, no room              | the outcome of a try  |
/// | failed      | anything else: not RTSP, a missing file, a codec that cannot be sent | the outcome of a try  |
///
/// Further tries do not change the state until one has another outcome; so a camera that is switched off is
/// `unreachable` since it went, however often it is tried. What failed while nobody needs it any more keeps its state,
/// untried, until somebody does. Every state but the failures goes to `idle` when nobody needs the source.
enum class CameraState
{
    idle,
    starting,
    running,
    frozen,
    unreachable,
    refused,
    failed
};

constexpr auto tableOf(CameraState)
{
    using S = CameraState;
    constexpr unsigned failures = anyOf(S::unreachable, S::refused, S::failed);
    constexpr unsigned outcomes = failures | anyOf(S::running, S::frozen);
    return StateTable<S, 7>{"camera",
                            {{
                                {S::idle, "idle", anyOf(S::starting)},
                                {S::starting, "starting", outcomes | anyOf(S::idle)},
                                {S::running, "running", failures | anyOf(S::frozen, S::idle)},
                                {S::frozen, "frozen", failures | anyOf(S::running, S::idle)},
                                {S::unreachable, "unreachable", outcomes},
                                {S::refused, "refused", outcomes},
                                {S::failed, "failed", outcomes},
                            }}};
}

/// Whether the last try failed.
constexpr bool isFailure(CameraState state)
{
    return state == CameraState::unreachable || state == CameraState::refused || state == CameraState::failed;
}

}  // namespace refhost
