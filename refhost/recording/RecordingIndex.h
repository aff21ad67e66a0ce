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
#include "refhost/recording/RecordedSegment.h"
#include "refhost/recording/SqliteDatabase.h"

namespace refhost
{

class SqliteQuery;

/// What was recorded when and where it lies: the table of all segments below one directory, in
/// `<directory>/index.db`.
///
/// One process writes; any number may read meanwhile. Writing operations return false, or nothing, when the
/// disk fails (full, read-only); the table is as before then, and lastError() says why. Entries whose path
/// would lead out of the directory are never given out. Threads: any. Readers do not wait for writers. Every
/// operation may touch the disk: not for event loops.
class RecordingIndex
{
public:
    /// Segments that follow each other within this time leave no gap: measured ends are not exact.
    static constexpr Duration minGap = std::chrono::milliseconds(200);
    /// Segments that follow each other within this time are played without a break: a file does not say how
    /// long its last frame was displayed.
    static constexpr Duration maxContiguousGap = std::chrono::seconds(1);
    /// How far the end of an open segment may be beyond what is known of it.
    static constexpr Duration openReserve = std::chrono::seconds(5);

    /// Opens the index of a directory, making both if they are missing, for the server's user and group
    /// alone. One that is damaged is set aside as `index.db.damaged`, or `index.db.damaged-2` and so on
    /// beside earlier ones, with a line in the log, and an empty one takes its place: RecordingRepair finds
    /// the files again. \param path        of the directory \param[out] error  why not, in plain words
    /// \returns null with `error` set when it cannot be written to or belongs to a later version
    static std::shared_ptr<RecordingIndex> open(const std::string& path, std::string& error);
    /// Opens an index that is there to look at it, as another process than the server does.
    static std::shared_ptr<RecordingIndex> openToRead(const std::string& path, std::string& error);

    RecordingIndex(const RecordingIndex&) = delete;
    RecordingIndex& operator=(const RecordingIndex&) = delete;
    ~RecordingIndex();

    const std::string& directory() const
    {
        return directory_;
    }

    /// Segments of a stream with recorded media in [begin, end). Closed and open ones, in the order of epoch and
    /// begin.
    /// \param max   how many, the first ones; negative: all
    /// \param after  those behind this place alone; at first all
    std::vector<RecordedSegment> find(int cameraId, int streamId, WallTime begin, WallTime end, int max = -1,
                                      const SegmentPlace& after = {}) const;
    /// The lowest stream of a camera with recorded media in [begin, end); nothing where there is none.
    std::optional<int> streamOf(int cameraId, WallTime begin, WallTime end) const;

    /// Every stream with a segment, in the order of camera and stream.
    std::vector<RecordedStream> streams() const;
    /// When a stream was recorded, in time order; the gaps are between the intervals. Where the clock was set
    /// back, intervals overlap.
    std::vector<RecordedInterval> recordings(int cameraId, int streamId) const;

    /// Every segment in the order of its begin; the oldest first.
    std::vector<RecordedSegment> all() const;
    /// Segments that are being written, or were when the process ended.
    std::vector<RecordedSegment> unclosed() const;
    /// The closed segment with the earliest begin.
    /// \param besides  segments that do not count
    /// \param since    segments that begin earlier do not count either
    std::optional<RecordedSegment> oldestClosed(const std::set<std::int64_t>& besides = {},
                                                WallTime since = WallTime::min()) const;
    /// The closed segment with a begin before `before` that was entered first.
    std::optional<RecordedSegment> firstBefore(WallTime before, const std::set<std::int64_t>& besides) const;
    /// The begin of the first segment that was entered after another one and starts at `since` or later.
    std::optional<WallTime> beginAfter(std::int64_t id, WallTime since) const;
    /// The latest begin of all segments.
    std::optional<WallTime> newestBegin() const;
    /// How many segments there are.
    std::int64_t count() const;
    /// Sum of the sizes of all segments, bytes.
    std::int64_t totalBytes() const;

    /// Enters a segment that is found on the disk, in the first epoch that has nothing at its time.
    /// \param segment  `id` and `epoch` are not read; `path` must lie below the directory
    /// \returns its id
    std::optional<std::int64_t> add(const RecordedSegment& segment);
    /// What apply() does to the segment of a path.
    struct Change
    {
        RecordedSegment segment;  ///< as in add()
        bool removed = false;  ///< its file, which is the caller's; of `segment` the path alone is read then
    };

    /// Enters segments that are recorded now, or what is known of them, and forgets others, all in one
    /// transaction: when it fails nothing has changed. A segment that starts before the stream's last one
    /// ended starts a new epoch.
    bool apply(const std::vector<Change>& changes);
    /// apply() of one segment.
    bool enter(const RecordedSegment& segment);
    /// A segment came to its end.
    bool close(std::int64_t id, Duration duration, std::int64_t bytes);
    /// Forgets a segment; its file is the caller's.
    bool remove(std::int64_t id);

    /// Whether there is a segment of that path.
    bool has(const std::string& path) const;

    /// Whether what is not found here is not there: false while files are still looked through
    /// (setComplete()), and when the last search failed because another process keeps the database for
    /// itself.
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
    struct Reading
    {
        std::unique_ptr<SqliteDatabase> database;
        SqliteDatabase::Statement find;
        SqliteDatabase::Statement epochAfter;
        SqliteDatabase::Statement streamAfter;
        SqliteDatabase::Statement ofStream;
        SqliteDatabase::Statement all;
        SqliteDatabase::Statement unclosed;
        SqliteDatabase::Statement oldestClosed;
        SqliteDatabase::Statement firstBefore;
        SqliteDatabase::Statement beginAfter;
        SqliteDatabase::Statement newestBegin;
        SqliteDatabase::Statement count;
        SqliteDatabase::Statement totalBytes;
        SqliteDatabase::Statement has;
    };
    struct Writing
    {
        std::unique_ptr<SqliteDatabase> database;
        SqliteDatabase::Statement add;
        SqliteDatabase::Statement enter;
        SqliteDatabase::Statement removePath;
        SqliteDatabase::Statement close;
        SqliteDatabase::Statement remove;
    };

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
    std::vector<RecordedSegment> segments(SqliteDatabase::Statement Reading::*statement,
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
    Writing writing_ OV_GUARDED_BY(writingMutex_);
    std::string error_ OV_GUARDED_BY(writingMutex_);
    bool full_ OV_GUARDED_BY(writingMutex_) = false;
    mutable Mutex readingMutex_;
    /// Ends before the writing one, which brings everything into one file when it ends as the last.
    Reading reading_ OV_GUARDED_BY(readingMutex_);
};

}  // namespace refhost
