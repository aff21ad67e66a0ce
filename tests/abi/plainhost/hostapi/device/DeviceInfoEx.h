#pragma once

#include "hostapi/device/InetAddr.h"

/// Of a host whose operations are const only where the library asks for that.
class DeviceInfoEx
{
public:
    const char* getDeviceID();
    InetAddr& getDeviceAddr();
};
