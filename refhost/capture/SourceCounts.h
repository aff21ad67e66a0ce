#pragma once
// Tested by tests/refhost/capture/MediaTap_test.cpp.

#include <atomic>
#include <cstdint>

#include "refhost/base/Times.h"

namespace refhost
{

/// What came from the source of a stream so far. Threads: any; no lock.
class SourceCounts
{
public:
    /// Encoded media of some track came.
    void add(std::uint64_t bytes)
    {
        bytes_.fetch_add(bytes, std::memory_order_relaxed);
    }

    /// A key frame of the video came; one at a time.
    void noteKeyFrame(MonotonicTime captureTime)
    {
        const MonotonicTime last = lastKeyFrame_.exchange(captureTime, std::memory_order_relaxed);
        if (keyFrames_.fetch_add(1, std::memory_order_relaxed) > 0 && captureTime > last)
        {
            interval_.store(captureTime - last, std::memory_order_relaxed);
        }
    }

    std::uint64_t bytes() const
    {
        return bytes_.load(std::memory_order_relaxed);
    }
    std::uint64_t keyFrames() const
    {
        return keyFrames_.load(std::memory_order_relaxed);
    }
    /// Between the last two; 0: not known.
    Duration keyFrameInterval() const
    {
        return interval_.load(std::memory_order_relaxed);
    }

private:
    std::atomic<std::uint64_t> bytes_{0};
    std::atomic<std::uint64_t> keyFrames_{0};
    std::atomic<MonotonicTime> lastKeyFrame_{MonotonicTime()};
    std::atomic<Duration> interval_{Duration::zero()};
};

}  // namespace refhost
