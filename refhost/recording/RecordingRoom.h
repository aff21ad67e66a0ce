#pragma once
// Tested by tests/refhost/recording/FullDisk_test.cpp.

#include <chrono>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>

#include "refhost/base/Mutex.h"
#include "refhost/base/Times.h"
#include "refhost/recording/SegmentLedger.h"

namespace refhost
{

/// Makes room where the disk of the recordings is full: the oldest finished segments of all streams go first.
///
/// Segments are found by the names of their files, so it works also while the index cannot be read, and in
/// the right order while an index is rebuilt. Files that are open anywhere, as those that are being played,
/// go only where no others are left. What is removed is reported in the log, at most once in ten minutes.
/// Threads: any; one at a time works, the others wait for it.
class RecordingRoom
{
public:
    /// \param ledger  outlives the room
    explicit RecordingRoom(SegmentLedger& ledger) : ledger_(ledger) {}
    RecordingRoom(const RecordingRoom&) = delete;
    RecordingRoom& operator=(const RecordingRoom&) = delete;

    /// Removes a hundredth of the disk, 256 MiB at most, and one segment at least; a few hundred files at
    /// most. \param again  that room which was made before did not suffice: do not believe the disk that it
    /// has some \returns false when nothing is left that can be removed
    bool make(bool again);

private:
    struct Candidate
    {
        WallTime begin;
        std::string path;
    };

    struct Need
    {
        std::int64_t bytes = 1;  ///< what is to be made room for
        std::int64_t freeBytes = 0;
        std::int64_t files = 1;
        std::int64_t freeFiles = 1;
    };

    bool hasRoom() const;
    Need need() const;
    void findOldest() OV_REQUIRES(mutex_);
    int removeOldest(const Need& need, bool alsoUsed) OV_REQUIRES(mutex_);
    std::optional<std::int64_t> remove(const std::string& path);
    void report(int removed) OV_REQUIRES(mutex_);

    SegmentLedger& ledger_;
    Mutex mutex_;
    std::deque<Candidate> oldest_ OV_GUARDED_BY(mutex_);  // found before; the oldest first
    std::optional<std::chrono::steady_clock::time_point> reported_ OV_GUARDED_BY(mutex_);
    int unreported_ OV_GUARDED_BY(mutex_) = 0;
};

}  // namespace refhost
