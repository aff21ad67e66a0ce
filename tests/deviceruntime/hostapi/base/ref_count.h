#pragma once

#include "hostapi/base/HostExport.h"

/// A device's count record.
class OV_HOST_API ref_count
{
public:
    int lock();
    void unLock();
    void* getPointer();
    int inc_reference() const;
    int dec_reference();
};
