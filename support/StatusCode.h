#pragma once
// Tested by tests/refhost/rtsp/message/StatusMap_test.cpp.

/// Status codes that the library itself returns. Codes of host and codec calls are returned unchanged.
enum StatusCode
{
    statusSuccess = 0,
    /// An iteration of the talk-back worker found no audio output.
    statusNoPlayer = -1,
    /// A missing facility or a refused input: no codec factory for the platform type, unsupported transport
    /// kind, unknown or duplicate audio session, no audio output player.
    statusRefused = -6,
    /// Not found or malformed: URL syntax, track not in the media description.
    statusNotFound = -8,
    /// The audio output is unusable now; inside the talk-back worker only. A dispatcher may return it too and
    /// keeps its session.
    statusPlayerUnusable = -9,
    /// The talk-back worker's thread did not start.
    statusThreadFailed = -12,
};

/// Codes of the host's AudioDispatcher that mean "nothing to do now": the session stays. The host defines the
/// difference between them.
enum AudioDispatcherCode
{
    audioDispatcherIdle = -211,
    audioDispatcherAgain = -213,
};
