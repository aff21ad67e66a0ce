#pragma once
// Tested by tests/refhost/threads/GThread_test.cpp.

#include <atomic>
#include <memory>
#include <thread>

#include "hostapi/threads/OVThread.h"

/// State of this host's OVThread.
struct OVThread::State
{
    /// Shared with the running thread, which may outlive the thread object: the thread itself may drop the
    /// last handle to it.
    struct Shared
    {
        std::atomic<bool> running{false};
        std::atomic<bool> endAsked{false};
        /// The running thread, which sets and clears it.
        std::atomic<std::thread::id> owner{};
    };

    std::shared_ptr<Shared> shared = std::make_shared<Shared>();
};
