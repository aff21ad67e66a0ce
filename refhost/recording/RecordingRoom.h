#pragma once
// Tested by tests/refhost/recording/FullDisk_test.cpp.

#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>

#include "refhost/base/Mutex.h"
#include "refhost/base/Times.h"
#include "refhost/recording/LogPause.h"
#include "refhost/recording/SegmentLedger.h"

namespace refhost
{

/// Makes room on a full disk: removes the oldest finished segments of all streams.
///
/// Segments are found by their files' names, also while the index cannot be read or is rebuilt. Files that
/// are open anywhere, such as those being played, are removed only when no others are left. Removals are
/// logged, at most once in ten minutes. Threads: any; one at a time works, the others wait for it.
class RecordingRoom
{
public:
    /// \param ledger  outlives the room
    explicit RecordingRoom(SegmentLedger& ledger) : ledger_(ledger) {}
    RecordingRoom(const RecordingRoom&) = delete;
    RecordingRoom& operator=(const RecordingRoom&) = delete;

    /// Removes segments of a hundredth of the disk's size, at most 256 MiB, at least one segment and at most
    /// 256.
    /// \param again  the room made before did not suffice: removes segments even if the disk reports free
    ///               room
    /// \returns false when nothing is left that can be removed
    bool make(bool again);

private:
    struct Candidate
    {
        WallTime begin;
        std::string path;
    };

    struct Need
    {
        std::int64_t bytes = 1;  ///< free bytes that are needed
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
    std::deque<Candidate> oldest_ OV_GUARDED_BY(mutex_);  // cached; the oldest first
    LogPause reportPause_ OV_GUARDED_BY(mutex_);
    int unreported_ OV_GUARDED_BY(mutex_) = 0;
};

}  // namespace refhost
