#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "refhost/base/Mutex.h"
#include "refhost/base/Times.h"
#include "refhost/recording/IndexStatements.h"
#include "refhost/recording/RecordedSegment.h"

namespace refhost
{

class SqliteQuery;

/// Index of the segments below one directory: what was recorded when, and where it lies. Kept in
/// `<directory>/index.db`.
///
/// One process writes; any number may read meanwhile. A writing operation that fails, because the disk is full
/// or read-only, leaves the table as it was and returns false, or nothing; lastError() says why. Entries whose
/// path would lead out of the directory are not returned.
///
/// Threads: any; readers do not wait for writers. Every operation may touch the disk: not for event loops.
class RecordingIndex
{
public:
    /// Max distance of two segments without a gap between them: measured ends are not exact.
    static constexpr Duration minGap = std::chrono::milliseconds(200);
    /// Max distance of two segments that are played without a break: a file does not say how long its last
    /// frame was displayed.
    static constexpr Duration maxContiguousGap = std::chrono::seconds(1);
    /// How far an open segment may reach beyond its known end.
    static constexpr Duration openReserve = std::chrono::seconds(5);

    /// Opens the index of a directory, and makes both when they are missing, accessible to the server's user
    /// and group alone. A corrupt index is set aside as `index.db.damaged` (`index.db.damaged-2` and so on
    /// beside earlier ones), with a line in the log, and replaced by an empty one; RecordingRepair finds the
    /// files again.
    /// \param path        of the directory
    /// \param[out] error  why not, in plain words
    /// \returns null with `error` set when it cannot be written to or belongs to a later version
    static std::shared_ptr<RecordingIndex> open(const std::string& path, std::string& error);
    /// Opens an existing index to read it, as other processes than the server do; arguments as of open().
    static std::shared_ptr<RecordingIndex> openToRead(const std::string& path, std::string& error);

    RecordingIndex(const RecordingIndex&) = delete;
    RecordingIndex& operator=(const RecordingIndex&) = delete;
    ~RecordingIndex();

    const std::string& directory() const
    {
        return directory_;
    }

    /// Segments of a stream with media in [begin, end), closed and open ones, ordered by epoch and begin.
    /// \param max    max number, the first ones; negative: all
    /// \param after  only those behind this place; default: all
    std::vector<RecordedSegment> find(int cameraId, int streamId, WallTime begin, WallTime end, int max = -1,
                                      const SegmentPlace& after = {}) const;
    /// The lowest stream of a camera with media in [begin, end).
    std::optional<int> streamOf(int cameraId, WallTime begin, WallTime end) const;

    /// Every stream with a segment, ordered by camera and stream.
    std::vector<RecordedStream> streams() const;
    /// The contiguous intervals of a stream, ordered by begin. They overlap where the clock was set back.
    std::vector<RecordedInterval> recordings(int cameraId, int streamId) const;

    /// Every segment, ordered by begin.
    std::vector<RecordedSegment> all() const;
    /// Segments that are being written, or were when a process ended without closing them.
    std::vector<RecordedSegment> unclosed() const;
    /// The closed segment with the earliest begin.
    /// \param besides  ids of segments to ignore
    /// \param since    segments that begin earlier are ignored
    /// \param camera   whose; default: all cameras
    std::optional<RecordedSegment> oldestClosed(const std::set<std::int64_t>& besides = {},
                                                WallTime since = WallTime::min(),
                                                std::optional<int> camera = {}) const;
    /// The first entered of the closed segments that begin before `before`; the rest as above.
    std::optional<RecordedSegment> firstBefore(WallTime before, const std::set<std::int64_t>& besides,
                                               std::optional<int> camera = {}) const;
    /// The begin of the first segment that was entered after the one of `id` and starts at `since` or later.
    std::optional<WallTime> beginAfter(std::int64_t id, WallTime since) const;
    /// The latest begin of all segments.
    std::optional<WallTime> newestBegin() const;
    /// Number of segments.
    std::int64_t count() const;
    /// Sum of the sizes of all segments, bytes.
    std::int64_t totalBytes() const;
    /// The same of a camera.
    std::int64_t bytesOf(int cameraId) const;

    /// Enters a segment that was found on the disk, in the first epoch that has nothing at its time.
    /// \param segment  `id` and `epoch` are not read; `path` must lie below the directory
    /// \returns its id
    std::optional<std::int64_t> add(const RecordedSegment& segment);
    /// What apply() does to the segment of a path.
    struct Change
    {
        RecordedSegment segment;  ///< as in add()
        bool removed = false;     ///< forget it; only the path of `segment` is read
    };

    /// Enters or updates segments that are being recorded, and forgets others, in one transaction. A segment
    /// that starts before the end of the stream's last one starts a new epoch.
    bool apply(const std::vector<Change>& changes);
    /// apply() of one segment.
    bool enter(const RecordedSegment& segment);
    /// Marks a segment as closed.
    bool close(std::int64_t id, Duration duration, std::int64_t bytes);
    /// Forgets a segment; does not remove its file.
    bool remove(std::int64_t id);

    /// Whether the segment of a path is known.
    bool has(const std::string& path) const;

    /// Whether the index knows every recording: false during a repair (setComplete()), and after a search that
    /// failed because another process holds the database's lock.
    bool isComplete() const
    {
        return complete_ && readable_;
    }
    /// True at first.
    void setComplete(bool complete)
    {
        complete_ = complete;
    }

    /// Whether the last writing operation of any thread failed because the disk is full.
    bool foundDiskFull() const;
    /// Why the last writing operation of any thread failed.
    std::string lastError() const;

private:
    bool execute(const char* statement) OV_REQUIRES(writingMutex_);
    bool applyOne(const Change& change) OV_REQUIRES(writingMutex_);
    explicit RecordingIndex(std::string directory) : directory_(std::move(directory)) {}
    bool openWriting(std::string& error);
    bool openReading(std::string& error);
    std::optional<RecordedStream> streamAfter(const RecordedStream& stream) const;
    std::optional<int> epochAfter(int cameraId, int streamId, int epoch) const;
    RecordedSegment segmentOf(const SqliteQuery& row) const;
    std::optional<RecordedSegment> firstOf(SqliteQuery& query, const std::set<std::int64_t>& besides) const;
    std::string inside(const std::string& path) const;

    template <typename... Parameters>
    std::vector<RecordedSegment> segments(SqliteDatabase::Statement IndexQueries::*statement,
                                          const Parameters&... parameters) const;
    bool write(const SqliteDatabase::Statement& statement, const RecordedSegment& segment)
        OV_REQUIRES(writingMutex_);
    template <typename... Parameters>
    bool write(const SqliteDatabase::Statement& statement, const Parameters&... parameters)
        OV_REQUIRES(writingMutex_);

    const std::string directory_;
    std::atomic<bool> complete_{true};
    mutable std::atomic<bool> readable_{true};
    mutable Mutex writingMutex_;
    IndexUpdates updates_ OV_GUARDED_BY(writingMutex_);
    std::string error_ OV_GUARDED_BY(writingMutex_);
    bool full_ OV_GUARDED_BY(writingMutex_) = false;
    mutable Mutex readingMutex_;
    /// Closed before the writing connection, which merges the write-ahead log when it is closed as the last.
    IndexQueries queries_ OV_GUARDED_BY(readingMutex_);
};

}  // namespace refhost
