#pragma once

#include "hostapi/base/HostExport.h"

/// The host's lock: not recursive, held by one thread, given back by the thread that took it.
///
/// The library takes it only through OVMutexManager. File and line name the call site for the host's
/// diagnostics (who holds it now) and decide nothing.
class OV_HOST_API OVMutex
{
public:
    /// A free mutex, usable at once.
    OVMutex();
    ~OVMutex();
    OVMutex(const OVMutex&) = delete;
    OVMutex& operator=(const OVMutex&) = delete;

    /// Resets a mutex that nobody holds or waits for; a new mutex needs no reset.
    /// \returns 0
    int Init();

    /// Waits until the mutex is free and locks it.
    /// \param file  name of the caller's source file; the text must stay valid until Unlock()
    /// \param line  line in it
    void Lock(const char* file, int line);

    /// Unlocks the mutex; only by the thread that holds it.
    void Unlock(const char* file, int line);

private:
    friend class OVMutexInspector;  // what a host's own tests look at

    struct Impl;
    Impl* impl_;
};
