#include "refhost/recording/RecordingIndex.h"

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <system_error>
#include <utility>

#include "refhost/recording/IndexFile.h"
#include "refhost/recording/IndexSchema.h"
#include "refhost/recording/RecordingFolder.h"
#include "refhost/recording/SqliteQuery.h"

namespace refhost
{
namespace
{

constexpr const char* columns =
    "SELECT id, camera, stream, begin_ns, duration_ns, bytes, path, closed, epoch FROM segment ";
constexpr int pathColumn = 6;

/// Segments may overlap by this much without a clock that was set back: ends that were measured are not
/// exact.
constexpr Duration maxOverlap = RecordingIndex::maxContiguousGap;

/// As the columns count.
std::string nanosecondsOf(Duration span)
{
    return std::to_string(span.count());
}

/// What both ways of entering a segment begin with; the epoch follows.
constexpr const char* insert =
    "INSERT INTO segment(camera, stream, begin_ns, duration_ns, bytes, path, closed, epoch)"
    " VALUES(?1, ?2, ?3, ?4, ?5, ?6, ?7, ";

/// The first epoch without a segment at the time of the new one.
std::string firstFreeEpoch()
{
    const std::string overlap = nanosecondsOf(maxOverlap);
    return "(WITH RECURSIVE free(epoch) AS (SELECT 0 UNION ALL SELECT epoch + 1 FROM free WHERE EXISTS("
           "SELECT 1 FROM segment AS other WHERE other.camera = ?1 AND other.stream = ?2"
           " AND other.epoch = free.epoch AND other.begin_ns < ?3 + ?4 - " +
           overlap +
           " AND other.begin_ns > ?3 - (SELECT max(duration_ns) FROM segment WHERE camera = ?1 AND stream = "
           "?2)"
           " AND other.begin_ns + other.duration_ns > ?3 + " +
           overlap + ")) SELECT max(epoch) FROM free)";
}

/// The epoch of the stream's last segment, or a new one where that ended after the new one starts.
std::string nextEpoch()
{
    return "coalesce((SELECT iif(last.begin_ns + last.duration_ns > ?3 + " + nanosecondsOf(maxOverlap) +
           ", (SELECT max(epoch) + 1 FROM segment WHERE camera = ?1 AND stream = ?2), last.epoch)"
           " FROM segment AS last WHERE last.id ="
           " (SELECT max(id) FROM segment WHERE camera = ?1 AND stream = ?2)), 0)";
}

// Wraps prepare() so that a list of statements can be prepared and checked as a whole.
SqliteDatabase::Statement prepared(SqliteDatabase& database, const std::string& sql, bool& good)
{
    SqliteDatabase::Statement statement = database.prepare(sql.c_str());
    good = good && statement != nullptr;
    return statement;
}

// Whether an entry's path, below the directory, stays there whoever wrote it.
bool staysInside(const std::string& path)
{
    const std::filesystem::path parts(path);
    return !path.empty() && parts.is_relative() &&
           std::none_of(parts.begin(), parts.end(),
                        [](const std::filesystem::path& part)
                        { return part.empty() || part == "." || part == ".."; });
}

}  // namespace

std::shared_ptr<RecordingIndex> RecordingIndex::open(const std::string& path, std::string& error)
{
    const std::string directory = RecordingFolder::withoutSlash(path);
    if (!RecordingFolder::make(directory, error))
    {
        return nullptr;
    }
    std::string corruption;
    if (SqliteDatabase::isCorrupt(IndexFile::pathIn(directory), corruption))
    {
        IndexFile::setAside(directory, corruption);
    }
    std::shared_ptr<RecordingIndex> index(new RecordingIndex(directory));
    if (!index->openWriting(error) || !index->openReading(error))
    {
        error = IndexFile::pathIn(directory) + ": " + error;
        return nullptr;
    }
    return index;
}

std::shared_ptr<RecordingIndex> RecordingIndex::openToRead(const std::string& path, std::string& error)
{
    const std::string directory = RecordingFolder::withoutSlash(path);
    std::shared_ptr<RecordingIndex> index(new RecordingIndex(directory));
    if (!index->openReading(error))
    {
        error = IndexFile::pathIn(directory) + ": " + error;
        return nullptr;
    }
    return index;
}

RecordingIndex::~RecordingIndex() = default;

bool RecordingIndex::openWriting(std::string& error)
{
    const MutexLock guard(writingMutex_);
    IndexFile::restrictAccess(directory_);
    writing_.database =
        SqliteDatabase::open(IndexFile::pathIn(directory_), SqliteDatabase::Access::write, error);
    if (!writing_.database)
    {
        return false;
    }
    SqliteDatabase& database = *writing_.database;
    if (!IndexSchema::bringUpToDate(database, error))
    {
        return false;
    }
    bool good = true;
    writing_.add = prepared(database, insert + firstFreeEpoch() + ")", good);
    writing_.enter = prepared(database,
                              insert + nextEpoch() +
                                  ") ON CONFLICT(path) DO UPDATE SET duration_ns = excluded.duration_ns,"
                                  " bytes = excluded.bytes, closed = excluded.closed",
                              good);
    writing_.removePath = prepared(database, "DELETE FROM segment WHERE path = ?", good);
    writing_.close =
        prepared(database, "UPDATE segment SET duration_ns = ?, bytes = ?, closed = 1 WHERE id = ?", good);
    writing_.remove = prepared(database, "DELETE FROM segment WHERE id = ?", good);
    if (!good)
    {
        error = database.lastError();
    }
    return good;
}

bool RecordingIndex::openReading(std::string& error)
{
    const MutexLock guard(readingMutex_);
    reading_.database =
        SqliteDatabase::open(IndexFile::pathIn(directory_), SqliteDatabase::Access::read, error);
    if (!reading_.database)
    {
        return false;
    }
    SqliteDatabase& database = *reading_.database;
    if (!IndexSchema::check(database, error))
    {
        return false;
    }
    bool good = true;
    const std::string select = columns;
    // The longest segment bounds how far before the interval one can begin that reaches into it; so the
    // time does not grow with the number of segments.
    reading_.find =
        prepared(database,
                 select +
                     "WHERE camera = ?1 AND stream = ?2 AND epoch = ?3 AND begin_ns < ?5 AND begin_ns > "
                     "max(?6, ?4 - " +
                     nanosecondsOf(openReserve) +
                     " - (SELECT max(duration_ns) FROM segment WHERE camera = ?1 AND stream = ?2))"
                     " AND begin_ns + duration_ns + iif(closed, 0, " +
                     nanosecondsOf(openReserve) + ") > ?4 ORDER BY begin_ns, id LIMIT ?7",
                 good);
    reading_.epochAfter = prepared(
        database, "SELECT min(epoch) FROM segment WHERE camera = ? AND stream = ? AND epoch > ?", good);
    // Two searches instead of a comparison of pairs, for which SQLite would read the camera's whole index.
    reading_.streamAfter =
        prepared(database,
                 "SELECT * FROM (SELECT camera, stream FROM segment WHERE camera = ?1 AND stream > ?2"
                 " ORDER BY stream LIMIT 1) UNION ALL SELECT * FROM (SELECT camera, stream FROM segment"
                 " WHERE camera > ?1 ORDER BY camera, stream LIMIT 1) LIMIT 1",
                 good);
    reading_.ofStream =
        prepared(database, select + "WHERE camera = ? AND stream = ? ORDER BY epoch, begin_ns, id", good);
    reading_.all = prepared(database, select + "ORDER BY begin_ns, id", good);
    reading_.unclosed = prepared(database, select + "WHERE closed = 0 ORDER BY begin_ns, id", good);
    reading_.oldestClosed =
        prepared(database, select + "WHERE closed != 0 AND begin_ns >= ? ORDER BY begin_ns, id", good);
    reading_.firstBefore =
        prepared(database, select + "WHERE closed != 0 AND begin_ns < ? ORDER BY id", good);
    reading_.beginAfter = prepared(
        database, "SELECT begin_ns FROM segment WHERE id > ? AND begin_ns >= ? ORDER BY id LIMIT 1", good);
    reading_.newestBegin =
        prepared(database, "SELECT begin_ns FROM segment ORDER BY begin_ns DESC LIMIT 1", good);
    reading_.count = prepared(database, "SELECT count(*) FROM segment", good);
    reading_.has = prepared(database, "SELECT 1 FROM segment WHERE path = ?", good);
    reading_.totalBytes = prepared(database, "SELECT total(bytes) FROM segment", good);
    if (!good)
    {
        error = database.lastError();
    }
    return good;
}

std::vector<RecordedSegment> RecordingIndex::find(int cameraId, int streamId, WallTime begin, WallTime end,
                                                  int max, const SegmentPlace& after) const
{
    std::vector<RecordedSegment> found;
    std::optional<int> epoch = after.epoch < 0 ? epochAfter(cameraId, streamId, -1) : after.epoch;
    for (; epoch && max != 0; epoch = epochAfter(cameraId, streamId, *epoch))
    {
        const WallTime since = *epoch == after.epoch ? after.begin : WallTime::min();
        std::vector<RecordedSegment> ofEpoch =
            segments(&Reading::find, cameraId, streamId, *epoch, begin, end, since, max);
        max -= max < 0 ? 0 : static_cast<int>(ofEpoch.size());
        std::move(ofEpoch.begin(), ofEpoch.end(), std::back_inserter(found));
    }
    return found;
}

std::optional<int> RecordingIndex::epochAfter(int cameraId, int streamId, int epoch) const
{
    const MutexLock guard(readingMutex_);
    SqliteQuery query(*reading_.epochAfter, cameraId, streamId, epoch);
    const bool found = query.next() && !query.isNull(0);
    readable_ = query.succeeded();
    return found ? std::make_optional(static_cast<int>(query.number(0))) : std::nullopt;
}

std::optional<int> RecordingIndex::streamOf(int cameraId, WallTime begin, WallTime end) const
{
    std::optional<RecordedStream> stream = streamAfter({cameraId, -1});
    while (stream && stream->cameraId == cameraId)
    {
        if (!find(cameraId, stream->streamId, begin, end, 1).empty())
        {
            return stream->streamId;
        }
        stream = streamAfter(*stream);
    }
    return std::nullopt;
}

std::vector<RecordedStream> RecordingIndex::streams() const
{
    std::vector<RecordedStream> found;
    for (std::optional<RecordedStream> next = streamAfter({-1, -1}); next; next = streamAfter(*next))
    {
        found.push_back(*next);
    }
    return found;
}

std::optional<RecordedStream> RecordingIndex::streamAfter(const RecordedStream& stream) const
{
    const MutexLock guard(readingMutex_);
    SqliteQuery query(*reading_.streamAfter, stream.cameraId, stream.streamId);
    const bool found = query.next();
    readable_ = query.succeeded();
    if (!found)
    {
        return std::nullopt;
    }
    return RecordedStream{static_cast<int>(query.number(0)), static_cast<int>(query.number(1))};
}

std::vector<RecordedInterval> RecordingIndex::recordings(int cameraId, int streamId) const
{
    std::vector<RecordedInterval> intervals;
    int epoch = 0;
    for (const RecordedSegment& segment : segments(&Reading::ofStream, cameraId, streamId))
    {
        const bool other = std::exchange(epoch, segment.epoch) != segment.epoch;
        if (intervals.empty() || other || segment.begin > intervals.back().end + minGap)
        {
            intervals.push_back({segment.begin, segment.begin, false});
        }
        RecordedInterval& interval = intervals.back();
        interval.end = std::max(interval.end, segment.end());
        interval.growing = !segment.closed;
    }
    std::stable_sort(intervals.begin(), intervals.end(),
                     [](const RecordedInterval& a, const RecordedInterval& b) { return a.begin < b.begin; });
    return intervals;
}

std::vector<RecordedSegment> RecordingIndex::all() const
{
    return segments(&Reading::all);
}

std::vector<RecordedSegment> RecordingIndex::unclosed() const
{
    return segments(&Reading::unclosed);
}

std::optional<RecordedSegment> RecordingIndex::oldestClosed(const std::set<std::int64_t>& besides,
                                                            WallTime since) const
{
    const MutexLock guard(readingMutex_);
    SqliteQuery query(*reading_.oldestClosed, since);
    return firstOf(query, besides);
}

std::optional<RecordedSegment> RecordingIndex::firstBefore(WallTime before,
                                                           const std::set<std::int64_t>& besides) const
{
    const MutexLock guard(readingMutex_);
    SqliteQuery query(*reading_.firstBefore, before);
    return firstOf(query, besides);
}

std::optional<RecordedSegment> RecordingIndex::firstOf(SqliteQuery& query,
                                                       const std::set<std::int64_t>& besides) const
{
    while (query.next())
    {
        if (besides.count(query.number(0)) == 0 && staysInside(query.text(pathColumn)))
        {
            return segmentOf(query);
        }
    }
    return std::nullopt;
}

std::optional<WallTime> RecordingIndex::beginAfter(std::int64_t id, WallTime since) const
{
    const MutexLock guard(readingMutex_);
    SqliteQuery query(*reading_.beginAfter, id, since);
    return query.next() ? std::make_optional(query.date(0)) : std::nullopt;
}

std::optional<WallTime> RecordingIndex::newestBegin() const
{
    const MutexLock guard(readingMutex_);
    SqliteQuery query(*reading_.newestBegin);
    return query.next() ? std::make_optional(query.date(0)) : std::nullopt;
}

std::int64_t RecordingIndex::count() const
{
    const MutexLock guard(readingMutex_);
    SqliteQuery query(*reading_.count);
    return query.next() ? query.number(0) : 0;
}

std::int64_t RecordingIndex::totalBytes() const
{
    const MutexLock guard(readingMutex_);
    SqliteQuery query(*reading_.totalBytes);
    return query.next() ? query.number(0) : 0;
}

std::string RecordingIndex::inside(const std::string& path) const
{
    return std::filesystem::path(path).lexically_relative(directory_).generic_string();
}

bool RecordingIndex::has(const std::string& path) const
{
    const MutexLock guard(readingMutex_);
    SqliteQuery query(*reading_.has, inside(path));
    return query.next();
}

std::optional<std::int64_t> RecordingIndex::add(const RecordedSegment& segment)
{
    const MutexLock guard(writingMutex_);
    if (!write(writing_.add, segment))
    {
        return std::nullopt;
    }
    return writing_.database->lastInsertedId();
}

bool RecordingIndex::enter(const RecordedSegment& segment)
{
    return apply({{segment, false}});
}

bool RecordingIndex::apply(const std::vector<Change>& changes)
{
    const MutexLock guard(writingMutex_);
    if (changes.size() == 1)
    {
        // A transaction of its own.
        return applyOne(changes.front());
    }
    const bool done =
        execute("BEGIN IMMEDIATE") &&
        std::all_of(changes.begin(), changes.end(),
                    [this](const Change& change) OV_REQUIRES(writingMutex_) { return applyOne(change); }) &&
        execute("COMMIT");
    if (!done && writing_.database)
    {
        // The failure that is reported is the one before. SQLite may have rolled back by itself.
        writing_.database->execute("ROLLBACK");
    }
    return done;
}

bool RecordingIndex::applyOne(const Change& change)
{
    return change.removed ? write(writing_.removePath, inside(change.segment.path))
                          : write(writing_.enter, change.segment);
}

bool RecordingIndex::execute(const char* statement)
{
    const bool done = writing_.database && writing_.database->execute(statement);
    if (!done && writing_.database)
    {
        full_ = writing_.database->isFull();
        error_ = IndexFile::pathIn(directory_) + ": " + writing_.database->lastError();
    }
    return done;
}

bool RecordingIndex::close(std::int64_t id, Duration duration, std::int64_t bytes)
{
    const MutexLock guard(writingMutex_);
    return write(writing_.close, duration, bytes, id);
}

bool RecordingIndex::remove(std::int64_t id)
{
    const MutexLock guard(writingMutex_);
    return write(writing_.remove, id);
}

bool RecordingIndex::foundDiskFull() const
{
    const MutexLock guard(writingMutex_);
    return full_;
}

std::string RecordingIndex::lastError() const
{
    const MutexLock guard(writingMutex_);
    return error_;
}

template <typename... Parameters>
std::vector<RecordedSegment> RecordingIndex::segments(SqliteDatabase::Statement Reading::*statement,
                                                      const Parameters&... parameters) const
{
    const MutexLock guard(readingMutex_);
    std::vector<RecordedSegment> found;
    SqliteQuery query(*(reading_.*statement), parameters...);
    while (query.next())
    {
        if (staysInside(query.text(pathColumn)))
        {
            found.push_back(segmentOf(query));
        }
    }
    readable_ = query.succeeded();
    return found;
}

RecordedSegment RecordingIndex::segmentOf(const SqliteQuery& row) const
{
    RecordedSegment segment;
    segment.id = row.number(0);
    segment.cameraId = static_cast<int>(row.number(1));
    segment.streamId = static_cast<int>(row.number(2));
    segment.begin = row.date(3);
    segment.duration = row.span(4);
    segment.bytes = row.number(5);
    segment.path = directory_ + "/" + row.text(pathColumn);
    segment.closed = row.number(7) != 0;
    segment.epoch = static_cast<int>(row.number(8));
    return segment;
}

bool RecordingIndex::write(const SqliteDatabase::Statement& statement, const RecordedSegment& segment)
{
    const std::string path = inside(segment.path);
    if (!staysInside(path))
    {
        error_ = segment.path + " does not lie below " + directory_;
        return false;
    }
    return write(statement, segment.cameraId, segment.streamId, segment.begin, segment.duration,
                 segment.bytes, path, segment.closed);
}

template <typename... Parameters>
bool RecordingIndex::write(const SqliteDatabase::Statement& statement, const Parameters&... parameters)
{
    if (!statement)
    {
        error_ = "this index was opened to be read";
        return false;
    }
    SqliteQuery query(*statement, parameters...);
    const bool done = query.run();
    full_ = !done && writing_.database->isFull();
    if (done)
    {
        return true;
    }
    error_ = IndexFile::pathIn(directory_) + ": " + writing_.database->lastError();
    return false;
}

}  // namespace refhost
