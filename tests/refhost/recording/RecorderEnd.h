#pragma once

#include <gtest/gtest.h>

#include <chrono>

#include "refhost/recording/Recorder.h"

namespace refhost
{

/// Stops a recorder and waits for its end.
inline void endRecording(Recorder& recorder)
{
    recorder.stop();
    EXPECT_TRUE(recorder.awaitEnd(std::chrono::steady_clock::now() + std::chrono::seconds(20)));
}

/// Threads that take no time to look after delayed work, for recorders that gather nothing.
inline RecordingDisk::Options promptDisk()
{
    RecordingDisk::Options options;
    options.writers.grain = Duration::zero();
    options.sync.interval = std::chrono::milliseconds(10);
    return options;
}

}  // namespace refhost
