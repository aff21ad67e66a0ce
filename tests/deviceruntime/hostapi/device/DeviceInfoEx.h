#pragma once

#include <string>

#include "hostapi/base/HostExport.h"
#include "hostapi/device/InetAddr.h"

/// Which device it is.
class OV_HOST_API DeviceInfoEx
{
public:
    DeviceInfoEx();
    DEVICE_OWN DeviceInfoEx(const DeviceInfoEx& other) = default;
    ~DeviceInfoEx();
    DeviceInfoEx& operator=(const DeviceInfoEx& other);
    const char* getDeviceID();
    InetAddr& getDeviceAddr();

private:
    friend class DeviceSettings;
    std::string deviceId_;
    InetAddr address_;
};
