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

    /// Puts a mutex that nobody holds or waits for into its initial state; a fresh mutex is in it already.
    /// \returns 0
    int Init();

    /// Waits until the mutex is free and takes it.
    /// \param file  name of the caller's source file; the text must stay valid until Unlock()
    /// \param line  line in it
    void Lock(const char* file, int line);

    /// Gives the mutex back; only by the thread that holds it.
    void Unlock(const char* file, int line);

private:
    friend class OVMutexInspector;  // what a host's own tests look at

    struct Impl;
    Impl* impl_;
};
