#pragma once
// Tested by tests/refhost/recording/Recorder_test.cpp.

#include <cstddef>

#include "refhost/recording/ByteBudget.h"
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
        std::size_t maxPreRoll = std::size_t{512} * 1048576;  ///< bytes of all recorders that wait for events
    };

    explicit RecordingDisk(const Options& options)
        : queued_(options.maxQueued),
          preRoll_(options.maxPreRoll),
          sync_(options.sync),
          writers_(options.writers)
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

    /// What may wait for the disk.
    ByteBudget& queued()
    {
        return queued_;
    }
    /// What may wait for events.
    ByteBudget& preRoll()
    {
        return preRoll_;
    }

private:
    ByteBudget queued_;
    ByteBudget preRoll_;
    DiskSync sync_;
    /// Ends first: its work uses the other.
    WorkPool writers_;
};

}  // namespace refhost
