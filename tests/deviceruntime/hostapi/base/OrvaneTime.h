#pragma once

#include "hostapi/base/HostExport.h"

/// A device's span of time.
class OV_HOST_API OrvaneTime
{
public:
    OrvaneTime(long seconds, long microseconds);
    static void wait(const OrvaneTime& span);

private:
    long seconds_;
    long microseconds_;
};
