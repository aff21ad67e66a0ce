#pragma once

#include <string>

#include "hostapi/base/HostExport.h"
#include "hostapi/description/MediaInfo.h"
#include "hostapi/device/IConnection.h"
#include "hostapi/device/MTUParam.h"
#include "hostapi/live/MulticastSessionParameter.h"
#include "support/SafePointer.h"

/// A device's live dispatch by sessions.
class OV_HOST_API LiveDispatcherMgr
{
public:
    static SafePointer<LiveDispatcherMgr> getInstance();
    DEVICE_OWN virtual ~LiveDispatcherMgr() noexcept(false);
    MTUParam& getMTUParam();
    bool findSession(const std::string& sessionId);
    int initSession(const std::string& sessionId, int cameraId, int streamId, const MediaInfo& info,
                    int payloadSize);
    int addSessionConnection(const std::string& sessionId, const std::string& trackId,
                             const SafePointer<IConnection>& connection);
    int play(const std::string& sessionId, const std::string& trackId);
    int pause(const std::string& sessionId, const std::string& trackId);
    int deleteSessionConection(const std::string& sessionId, const std::string& trackId);
    int getTrackSSRC(const std::string& sessionId, const std::string& trackId, int& ssrc);
    bool findMulticastSessionId(const std::string& multicastSessionId);
    int getMulticastSessionParam(const std::string& multicastSessionId,
                                 SafePointer<MulticastSessionParameter>& param) const;
    int addMulticastSessionParam(const SafePointer<MulticastSessionParameter>& param);
    int deleteMulticastSessionParam(const std::string& multicastSessionId);
};
