#pragma once

#include "hostapi/base/OVMutex.h"
#include "support/Export.h"

/// Scoped guard of one critical section: locks on construction, unlocks on destruction, nothing in between.
class OV_EXPORT OVMutexManager
{
public:
    /// Waits for `mutex` and takes it; the mutex must outlive the guard.
    /// \param file  name of the caller's source file without directory, a literal
    /// \param line  line of the call; both serve the mutex's diagnostics only
    OVMutexManager(OVMutex& mutex, const char* file, int line);
    ~OVMutexManager();
    OVMutexManager(const OVMutexManager&) = delete;
    OVMutexManager& operator=(const OVMutexManager&) = delete;

private:
    OVMutex* mutex_;
};
