#pragma once

#include <string>

#include "hostapi/base/HostExport.h"
#include "hostapi/description/SubMediaInfo.h"
#include "hostapi/device/IConnection.h"
#include "support/SafePointer.h"

/// A device's live dispatch.
class OV_HOST_API RTPStreamDispatcherMgr
{
public:
    static SafePointer<RTPStreamDispatcherMgr> getInstance();
    DEVICE_OWN virtual ~RTPStreamDispatcherMgr() noexcept(false);
    int initRTPBuilder(const std::string& streamKey, const std::string& sessionId, const std::string& trackId,
                       const SubMediaInfo& info, int payloadSize);
    int addRTPConnection(const std::string& streamKey, const std::string& sessionId,
                         const std::string& trackId, const SafePointer<IConnection>& connection);
    int play(const std::string& streamKey, const std::string& sessionId, const std::string& trackId);
    int pause(const std::string& streamKey, const std::string& sessionId, const std::string& trackId);
    int deleteRTPConnection(const std::string& streamKey, const std::string& sessionId,
                            const std::string& trackId);
    int getTrackSSRC(const std::string& streamKey, const std::string& sessionId, const std::string& trackId,
                     int& ssrc);
};
