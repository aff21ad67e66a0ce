#pragma once

#include "hostapi/base/HostExport.h"
#include "hostapi/description/RecordInfo.h"
#include "hostapi/device/DeviceExAbility.h"
#include "hostapi/device/DeviceInfoEx.h"
#include "hostapi/playback/IMediaSource.h"

/// A device's recording.
class OV_HOST_API OVAVPlayBackSource : public IMediaSource
{
public:
    OVAVPlayBackSource();
    DEVICE_OWN ~OVAVPlayBackSource() noexcept(false) override;
    void setDeviceInfo(const DeviceInfoEx& info);
    void setDeviceAbility(const DeviceExAbility& ability);
    void setRecordInfo(const RecordInfo& record);
    void setThirdPlatType(int type);

private:
    void* own_;
};
