#include "support/OVMutexManager.h"

namespace
{

// Every guard unlocks with this pair, whatever the call site: the mutex's diagnostics recognise guards by it.
const char* const unlockFile = "OVMutexManager.h";
const int unlockLine = 71;

}  // namespace

OVMutexManager::OVMutexManager(OVMutex& mutex, const char* file, int line) : mutex_(&mutex)
{
    mutex_->Lock(file, line);
}

OVMutexManager::~OVMutexManager()
{
    mutex_->Unlock(unlockFile, unlockLine);
}
