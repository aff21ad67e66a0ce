#pragma once
// Tested by tests/refhost/rtsp/message/StatusMap_test.cpp.

namespace refhost
{

/// Status codes that this host's classes return through the library; 0 is success. They do not overlap the
/// library's own codes (-1 to -12) and the talk-back codes (-211, -213).
enum HostStatus
{
    /// No such camera, or no such stream of it, is configured.
    hostStreamUnknown = -101,
    /// The stream is configured but not described yet; its source was started. Retry when ChangeSignal
    /// announces a change.
    hostStreamNotReady = -102,
    /// The stream's source cannot be opened or delivered nothing that can be sent.
    hostStreamFailed = -103,
    /// The dispatcher has no such session or track.
    hostTrackUnknown = -104,
    /// The connection handle was not created by this host, or the connection was closed.
    hostConnectionUnusable = -105,
    /// No audio output, or no decoder for the track's codec.
    hostTalkBackUnavailable = -106,
    /// The camera has no recorded media in the requested interval.
    hostRecordingUnknown = -107,
    /// The requested instant is not in the recording, or no recorded media follows it. Present playback
    /// continues.
    hostRangeInvalid = -108,
    /// Another talk-back session has exclusive use of the audio output.
    hostTalkBackBusy = -111,
    /// The recording index is being rebuilt or cannot be read now, so the requested interval may hold recorded
    /// media. Retry later.
    hostRecordingsIncomplete = -113,
    /// The client sent BYE: its talk-back session ends.
    hostTalkSenderLeft = -112,
};

}  // namespace refhost
