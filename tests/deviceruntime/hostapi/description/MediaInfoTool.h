#pragma once

#include <string>

#include "hostapi/base/HostExport.h"
#include "hostapi/description/MediaInfo.h"
#include "hostapi/description/RecordInfo.h"
#include "hostapi/device/DeviceExAbility.h"
#include "hostapi/device/DeviceInfoEx.h"

/// A device's maker of descriptions.
class OV_HOST_API MediaInfoTool
{
public:
    MediaInfoTool();
    ~MediaInfoTool();
    void setDeviceInfoEx(const DeviceInfoEx& info);
    void setDeviceExAbility(const DeviceExAbility& ability);
    void setMediaUrl(const std::string& url);
    void setThirdPlatType(int type);
    int createMediaInfo(int cameraId, int streamId, MediaInfo& out, bool mediaInfoFlag);
    int createPlaybackMediaInfo(const RecordInfo& record, MediaInfo& out);

private:
    std::string* url_;
};
