#pragma once

#include "hostapi/base/HostExport.h"

/// A device's MTU.
class OV_HOST_API MTUParam
{
public:
    MTUParam();
    ~MTUParam();
    MTUParam& operator=(const MTUParam& other);
    void setMTUValue(int bytes);
    int getMTUValue();

private:
    int mtu_;
};
