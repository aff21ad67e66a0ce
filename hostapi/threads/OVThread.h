#pragma once

#include "hostapi/base/HostExport.h"

/// Base of the host's threads: reports whether the thread runs.
class OV_HOST_API OVThread
{
public:
    virtual ~OVThread() noexcept(false);
    OVThread(const OVThread&) = delete;
    OVThread& operator=(const OVThread&) = delete;

    /// True from a successful start until the thread has been stopped. Threads: any.
    bool IsRunning();

protected:
    OVThread();

    struct State;
    /// The host's own; the library never touches it.
    State* state_;
};
