#pragma once

#include <cstdint>
#include <string>

#include "hostapi/base/HostExport.h"

/// A device's name for a recording.
class OV_HOST_API RecordInfo
{
public:
    RecordInfo();
    ~RecordInfo();
    void setCameraId(int id);
    void setDeviceId(const char* id);
    void setDeviceIP(const char* ip);
    void setRecordBeginTime(unsigned long seconds);
    void setRecordEndTime(unsigned long seconds);

private:
    friend class DeviceSettings;
    int cameraId_;
    std::string deviceId_;
    std::string deviceIp_;
    std::uint32_t beginTime_;
    std::uint32_t endTime_;
};
