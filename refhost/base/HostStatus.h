#pragma once
// Tested by tests/refhost/rtsp/message/StatusMap_test.cpp.

namespace refhost
{

/// Status codes that this host's classes return through the library, beside 0 for success. They keep clear
/// of the library's own codes (-1 to -12) and of the talk-back codes (-211, -213).
enum HostStatus
{
    /// No such camera, or no such stream of it, is configured.
    hostStreamUnknown = -101,
    /// The stream is configured but not described yet; it was asked to start. Ask again when
    /// ChangeSignal tells of a change.
    hostStreamNotReady = -102,
    /// The stream's source cannot be opened or gave nothing that can be sent.
    hostStreamFailed = -103,
    /// The dispatcher knows no such track of such a session.
    hostTrackUnknown = -104,
    /// The connection handle is not one that this host made, or it was closed.
    hostConnectionUnusable = -105,
    /// There is no audio output, or no decoder for what the track carries.
    hostTalkBackUnavailable = -106,
    /// There is no recorded media of the camera in the interval that was asked for.
    hostRecordingUnknown = -107,
    /// The instant that was asked for is not in the recording, or no recorded media follows it; what played before
    /// goes on.
    hostRangeInvalid = -108,
    /// Another talk-back session has the audio output for itself.
    hostTalkBackBusy = -111,
    /// There may be recorded media in the interval that was asked for, but the index of the recordings is being
    /// rebuilt or cannot be read now. Ask again later.
    hostRecordingsIncomplete = -113,
    /// The client sent BYE: its talk-back session ends.
    hostTalkSenderLeft = -112,
};

}  // namespace refhost
