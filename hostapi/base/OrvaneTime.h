#pragma once

#include "hostapi/base/HostExport.h"

/// A span of time in seconds and microseconds, and the wait for it.
class OV_HOST_API OrvaneTime
{
public:
    /// \param seconds       whole seconds, not negative
    /// \param microseconds  0 to 999999
    OrvaneTime(long seconds, long microseconds) : seconds_(seconds), microseconds_(microseconds) {}

    /// Whole seconds.
    long getSeconds() const
    {
        return seconds_;
    }

    /// What is left beside the whole seconds: 0 to 999999.
    long getMicroseconds() const
    {
        return microseconds_;
    }

    /// Blocks the calling thread for `span`. A fake host lets a manual clock pass instead.
    static void wait(const OrvaneTime& span);

private:
    long seconds_;
    long microseconds_;
};
