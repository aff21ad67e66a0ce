#pragma once

#include <string>

class OVMutex;

/// Access of tests to the state of the fake host's mutexes.
class OVMutexInspector
{
public:
    /// File and line of the present or, on a free mutex, the last Lock(); "file:line".
    static std::string lastLock(const OVMutex& mutex);
    /// File and line of the last Unlock().
    static std::string lastUnlock(const OVMutex& mutex);
    static bool isHeld(const OVMutex& mutex);
    /// How often Init() was called.
    static int initCount(const OVMutex& mutex);
};
