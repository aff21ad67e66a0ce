#pragma once
// Tested by tests/refhost/recording/Recorder_test.cpp.

#include <atomic>
#include <cstddef>

#include "refhost/recording/DiskSync.h"
#include "refhost/threads/WorkPool.h"

namespace refhost
{

/// What all recorders of one disk share: a few threads that write, one that waits for the disk, and the
/// memory for what waits. So a disk that hangs holds up its own recorders alone. Threads: any.
class RecordingDisk
{
public:
    struct Options
    {
        WorkPool::Options writers;
        DiskSync::Options sync;
        std::size_t maxQueued =
            std::size_t{512} * 1048576;  ///< bytes of all recorders that may wait for the disk
    };

    explicit RecordingDisk(const Options& options)
        : maxQueued_(options.maxQueued), sync_(options.sync), writers_(options.writers)
    {
    }

    WorkPool& writers()
    {
        return writers_;
    }
    DiskSync& sync()
    {
        return sync_;
    }

    /// Whether so many bytes more may wait; they are counted then, up to release().
    bool reserve(std::size_t bytes)
    {
        if (queued_ + bytes > maxQueued_)
        {
            return false;
        }
        queued_ += bytes;
        return true;
    }
    void release(std::size_t bytes)
    {
        queued_ -= bytes;
    }

private:
    const std::size_t maxQueued_;
    std::atomic<std::size_t> queued_{0};  ///< two that reserve at once may exceed the bound by a unit each
    DiskSync sync_;
    /// Ends first: its work uses the other.
    WorkPool writers_;
};

}  // namespace refhost
