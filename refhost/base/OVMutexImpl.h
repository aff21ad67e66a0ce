#pragma once
// Tested by tests/refhost/base/OVMutex_test.cpp.

#include <atomic>
#include <mutex>

#include "hostapi/base/OVMutex.h"

/// What stands behind this host's OVMutex: a lock, and who holds it now.
struct OVMutex::Impl
{
    /// Waiting longer than this is worth a line in the log; no critical section takes anywhere near as long.
    static constexpr int patience = 5;  // seconds

    std::mutex mutex;
    /// Call site of the present holder; null and 0 while the mutex is free. Written by the holder only.
    std::atomic<const char*> file{nullptr};
    std::atomic<int> line{0};

    void lockContended(const char* callersFile, int callersLine);
};
