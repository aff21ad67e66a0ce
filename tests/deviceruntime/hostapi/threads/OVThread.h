#pragma once

#include "hostapi/base/HostExport.h"

/// Base of a device's threads.
class OV_HOST_API OVThread
{
public:
    DEVICE_OWN virtual ~OVThread() noexcept(false);
    bool IsRunning();

protected:
    DEVICE_OWN OVThread();

    void* state_;
};
