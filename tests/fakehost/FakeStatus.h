#pragma once

/// Codes that the fake host returns itself. They differ from every code that the library uses.
enum FakeStatus
{
    /// The dispatcher has no such session or track.
    fakeTrackUnknown = -904,
    /// The playback dispatcher has no source, or was not started.
    fakeNotStarted = -905,
};
