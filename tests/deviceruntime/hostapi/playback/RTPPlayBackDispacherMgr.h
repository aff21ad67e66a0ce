#pragma once

#include <string>

#include "hostapi/base/HostExport.h"
#include "hostapi/description/MediaInfo.h"
#include "hostapi/description/RTPPacketInfo.h"
#include "hostapi/description/RecordInfo.h"
#include "hostapi/device/DeviceExAbility.h"
#include "hostapi/device/DeviceInfoEx.h"
#include "hostapi/device/IConnection.h"
#include "support/SafePointer.h"

/// A device's playback dispatch by sessions.
class OV_HOST_API RTPPlayBackDispacherMgr
{
public:
    static SafePointer<RTPPlayBackDispacherMgr> getInstance();
    DEVICE_OWN virtual ~RTPPlayBackDispacherMgr() noexcept(false);
    int setMediaInfo(const MediaInfo& info);
    int initDispatcher(const std::string& sessionId, const DeviceInfoEx& device,
                       const DeviceExAbility& ability, const RecordInfo& record);
    int setup(const std::string& sessionId, const std::string& trackId,
              const SafePointer<IConnection>& connection);
    int play(const std::string& sessionId, const std::string& trackId);
    int setPlayRange(const std::string& sessionId, const std::string& trackId, double start, double end,
                     int rangeKind, bool rangeFlag);
    int getCurPlayRange(const std::string& sessionId, const std::string& trackId, double& start, double& end);
    int getCurRTPPacketInfo(const std::string& sessionId, const std::string& trackId, RTPPacketInfo& info);
    int pause(const std::string& sessionId, const std::string& trackId);
    int setPauseRange(const std::string& sessionId, const std::string& trackId, double instant);
    int setSpeed(const std::string& sessionId, const std::string& trackId, double scale, double speed);
    int getTrackSSRC(const std::string& sessionId, const std::string& trackId, int& ssrc);
    int getConnectionState(std::string sessionId, std::string trackId, bool& connected);
    int stop(const std::string& sessionId, const std::string& trackId);
};
