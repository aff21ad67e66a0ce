#pragma once

#include "hostapi/base/HostExport.h"

/// What a device can do.
class OV_HOST_API DeviceExAbility
{
public:
    DeviceExAbility();
    ~DeviceExAbility();
    DeviceExAbility& operator=(const DeviceExAbility& other);

private:
    bool audioBack_;
};
