#pragma once

#include <atomic>

#include "hostapi/threads/OVThread.h"

/// State of one thread of the fake host.
struct OVThread::State
{
    std::atomic<bool> running{false};
};
