#pragma once
// Tested by tests/live/OVLiveController2_test.cpp, tests/live/OVMulticastLiveControllerSetup_test.cpp.

#include <string>

#include "hostapi/description/MediaInfo.h"
#include "hostapi/device/IConnection.h"
#include "hostapi/live/LiveDispatcherMgr.h"
#include "mediaurl/MediaUrlParam.h"
#include "support/Export.h"
#include "support/SafePointer.h"

/// Sets up a session of LiveDispatcherMgr for its controllers; failures are printed with the controller's
/// name.
class OV_INTERNAL DispatcherSession
{
public:
    /// \param controllerName  class name in the printed lines; a literal
    /// \param dispatcher, sessionId  must outlive this object
    DispatcherSession(const char* controllerName, const SafePointer<LiveDispatcherMgr>& dispatcher,
                      const std::string& sessionId);

    /// Creates the session; an existing one is used unchanged.
    /// \returns 0 or the dispatcher's code, which is printed
    int open(const MediaUrlParam& param, const MediaInfo& info, int payloadSize) const;

    /// Gives a track its connection.
    /// \returns 0 or the dispatcher's code, which is printed
    int connect(const std::string& trackId, const SafePointer<IConnection>& connection) const;

private:
    const char* controllerName_;
    const SafePointer<LiveDispatcherMgr>& dispatcher_;
    const std::string& sessionId_;
};
