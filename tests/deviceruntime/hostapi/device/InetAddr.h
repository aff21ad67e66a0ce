#pragma once

#include <string>

#include "hostapi/base/HostExport.h"

/// A device's network address.
class OV_HOST_API InetAddr
{
public:
    const char* getIP();

private:
    friend class DeviceSettings;
    std::string ip_;
};
