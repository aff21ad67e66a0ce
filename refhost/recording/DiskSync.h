#pragma once

#include <atomic>
#include <cstddef>
#include <memory>
#include <thread>
#include <vector>

#include "refhost/base/ConditionVariable.h"
#include "refhost/base/Times.h"
#include "refhost/recording/SyncedFile.h"

namespace refhost
{

/// Brings what is written to the files of one disk to the disk itself, on a thread of its own, so that a cut
/// of the power takes little and no writer waits for it.
///
/// It works in passes. Each first has the system start on all files that changed and then waits for one after
/// the other (`fdatasync`): a journalling file system commits them together, so many cost little more than
/// one. A disk that hangs holds up this thread alone. The thread starts with the first file. Threads: any.
class DiskSync
{
public:
    struct Options
    {
        Duration interval = std::chrono::seconds(1);  ///< from the start of one pass to that of the next
        std::size_t maxWaiting = 4096;                ///< files; beyond them, who adds one waits for the disk
    };

    explicit DiskSync(const Options& options);
    /// close() with time for a disk that works.
    ~DiskSync();
    DiskSync(const DiskSync&) = delete;
    DiskSync& operator=(const DiskSync&) = delete;

    /// Has the next pass bring `file` to the disk. When that fails, SyncedFile::result() says so. After
    /// close() the system writes it when it likes.
    void add(const std::shared_ptr<SyncedFile>& file);

    /// Has the system start on what waits, without waiting for the disk, and ends the thread. A thread that
    /// hangs in the disk is left behind.
    /// \param max  how long to wait for the thread
    /// \returns false when it was left behind
    bool close(Duration max);

private:
    using Files = std::vector<std::shared_ptr<SyncedFile>>;

    /// What the thread uses, also when it is left behind.
    struct State
    {
        explicit State(const Options& chosen) : options(chosen) {}

        const Options options;
        Mutex mutex;
        ConditionVariable changed;
        Files waiting OV_GUARDED_BY(mutex);
        std::atomic<bool> closing{false};  ///< changes with the mutex held
        bool ended OV_GUARDED_BY(mutex) = false;
    };

    void makeThread() OV_REQUIRES(state_->mutex);
    static void serve(State& state);
    static void runPass(State& state, Files files);
    static void startAll(const Files& files);
    static void sync(SyncedFile& file);

    const std::shared_ptr<State> state_;
    std::thread thread_ OV_GUARDED_BY(state_->mutex);
    bool failureReported_ OV_GUARDED_BY(state_->mutex) = false;
};

}  // namespace refhost
