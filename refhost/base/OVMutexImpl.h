#pragma once
// Tested by tests/refhost/base/OVMutex_test.cpp.

#include <atomic>
#include <chrono>
#include <mutex>

#include "hostapi/base/OVMutex.h"

/// State of this host's OVMutex: a lock and its present holder.
struct OVMutex::Impl
{
    /// A longer wait is logged; no critical section takes anywhere near as long.
    static constexpr std::chrono::seconds patience{5};

    std::mutex mutex;
    /// Call site of the present holder; null and 0 while the mutex is free. Only the holder writes them.
    std::atomic<const char*> file{nullptr};
    std::atomic<int> line{0};

    void lockContended(const char* callersFile, int callersLine);
};
