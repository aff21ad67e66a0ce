#pragma once
// Tested by tests/live/OVMulticastLiveControllerSetup_test.cpp, tests/live/OVMulticastLiveControllerStop_test.cpp.

#include <string>

#include "hostapi/live/LiveDispatcherMgr.h"
#include "mediaurl/MediaUrlParam.h"
#include "support/Export.h"
#include "support/SafePointer.h"

/// The session that all RTSP sessions of a camera's stream share, and the record of its members and tracks,
/// for the multicast controller's operations. Created for each use.
class OV_INTERNAL MulticastSession
{
public:
    /// \param dispatcher  keeps the session and its record; must outlive this object
    explicit MulticastSession(const SafePointer<LiveDispatcherMgr>& dispatcher);

    /// Derives the id. Requires: called before everything else. A failure is printed.
    /// \returns 0 or the token's code
    int deriveId(const MediaUrlParam& param);

    /// Empty before deriveId().
    const std::string& id() const;

    /// Adds a member and a track to the record, and creates the record if needed; a failure is printed.
    /// \param mediaUrl  of the track, unless the record has it already
    /// \returns 0 or the dispatcher's code
    int noteMember(const std::string& sessionId, const std::string& trackId,
                   const std::string& mediaUrl) const;

    /// Whether there is a record with this member and this track; a failure is printed.
    /// \returns 0; -8 when one of the three is missing; otherwise the dispatcher's code
    int findTrackOfMember(const std::string& sessionId, const std::string& trackId) const;

    /// Ends the tracks of the record up to the first one that cannot be ended.
    /// \returns 0 or the dispatcher's code
    int endTracks(const SafePointer<MulticastSessionParameter>& record) const;

private:
    static void printFailure(const char* step, int result);
    static void printRecordFailure(int result);

    const SafePointer<LiveDispatcherMgr>& dispatcher_;
    std::string id_;
};
