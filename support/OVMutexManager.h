#pragma once

#include "hostapi/base/OVMutex.h"
#include "support/Export.h"

/// Scoped guard of one critical section: locks on construction, unlocks on destruction.
class OV_EXPORT OVMutexManager
{
public:
    /// Waits for `mutex` and locks it. Requires: the mutex outlives the guard.
    /// \param file  name of the caller's source file without directory, a literal
    /// \param line  line of the call; both are for the mutex's diagnostics only
    OVMutexManager(OVMutex& mutex, const char* file, int line);
    ~OVMutexManager();
    OVMutexManager(const OVMutexManager&) = delete;
    OVMutexManager& operator=(const OVMutexManager&) = delete;

private:
    OVMutex* mutex_;
};
