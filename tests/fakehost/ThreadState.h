#pragma once

#include <atomic>

#include "hostapi/threads/OVThread.h"

/// What the fake host knows of one thread.
struct OVThread::State
{
    std::atomic<bool> running{false};
};
