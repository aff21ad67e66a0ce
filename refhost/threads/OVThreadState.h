#pragma once
// Tested by tests/refhost/threads/GThread_test.cpp.

#include <atomic>
#include <memory>
#include <thread>

#include "hostapi/threads/OVThread.h"

/// What stands behind this host's OVThread.
struct OVThread::State
{
    /// Shared with the running thread, which may outlive the thread object: the last handle to it may be
    /// dropped by the thread itself.
    struct Shared
    {
        std::atomic<bool> running{false};
        std::atomic<bool> endAsked{false};
        /// The running thread; set and cleared by itself.
        std::atomic<std::thread::id> owner{};
    };

    std::shared_ptr<Shared> shared = std::make_shared<Shared>();
};
