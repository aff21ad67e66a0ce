#pragma once

/// Codes that the fake host returns of its own accord. They keep clear of every code the library knows.
enum FakeStatus
{
    /// The dispatcher knows no such track of such a session.
    fakeTrackUnknown = -904,
    /// The playback dispatcher has no source, or was not started.
    fakeNotStarted = -905,
};
