#pragma once
// Tested by tests/live/LiveTalkBack_test.cpp.

#include <string>

#include "hostapi/description/SubMediaInfo.h"
#include "hostapi/device/IConnection.h"
#include "support/Export.h"
#include "support/SafePointer.h"

/// A unicast controller's talk-back track: its methods go to OVAudioBackDispatcherMgr, with the session id
/// only. Created for each use; refers to the controller's field. Results are the manager's, unchanged.
class OV_INTERNAL TalkBackTrack
{
public:
    /// \param trackId  the controller's field: id of its talk-back track, empty until one was set up
    explicit TalkBackTrack(std::string& trackId);

    /// Whether a method of this track belongs to talk-back. Until a talk-back track was set up, so does an
    /// empty track id, which equals the field.
    bool is(const std::string& trackId) const;

    /// Creates a session in the manager and attaches the connection. Once the session exists, the track is the
    /// controller's talk-back track, even when the connection is refused.
    int setup(const std::string& sessionId, const std::string& trackId, const SubMediaInfo& info,
              int payloadSize, const SafePointer<IConnection>& connection) const;

    int play(const std::string& sessionId) const;
    int pause(const std::string& sessionId) const;
    int stop(const std::string& sessionId) const;
    int getTrackSSRC(const std::string& sessionId, int& ssrc) const;

private:
    std::string& trackId_;
};
