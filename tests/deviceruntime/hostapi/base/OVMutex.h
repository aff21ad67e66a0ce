#pragma once

#include "hostapi/base/HostExport.h"

/// A device's lock.
class OV_HOST_API OVMutex
{
public:
    OVMutex();
    ~OVMutex();
    int Init();
    void Lock(const char* file, int line);
    void Unlock(const char* file, int line);

private:
    void* system_;
};
