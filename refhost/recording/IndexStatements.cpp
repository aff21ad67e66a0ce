#include "refhost/recording/IndexStatements.h"

#include "refhost/recording/IndexSchema.h"
#include "refhost/recording/RecordingIndex.h"

namespace refhost
{
namespace
{

/// In the order of SegmentColumn.
constexpr const char* select =
    "SELECT id, camera, stream, begin_ns, duration_ns, bytes, path, closed, epoch FROM segment ";

/// Segments may overlap by this much though the clock was not set back: measured ends are not exact.
constexpr Duration maxOverlap = RecordingIndex::maxContiguousGap;

/// As the columns count.
std::string nanosecondsOf(Duration span)
{
    return std::to_string(span.count());
}

/// How both statements that enter a segment start; its epoch follows.
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

/// Segments that reach into an interval. The longest segment bounds how far before the interval such a one can
/// begin, so that the search does not take longer with the number of segments.
std::string reachInto()
{
    const std::string reserve = nanosecondsOf(RecordingIndex::openReserve);
    return "WHERE camera = ?1 AND stream = ?2 AND epoch = ?3 AND begin_ns < ?5 AND begin_ns > max(?6, ?4 - " +
           reserve +
           " - (SELECT max(duration_ns) FROM segment WHERE camera = ?1 AND stream = ?2))"
           " AND begin_ns + duration_ns + iif(closed, 0, " +
           reserve + ") > ?4 ORDER BY begin_ns, id LIMIT ?7";
}

/// Prepares statements, and says whether all of them are valid.
class Preparation
{
public:
    explicit Preparation(SqliteDatabase& database) : database_(database) {}

    SqliteDatabase::Statement operator()(const std::string& sql)
    {
        SqliteDatabase::Statement statement = database_.prepare(sql.c_str());
        if (!statement && error_.empty())
        {
            error_ = database_.lastError();
        }
        return statement;
    }

    /// \param[out] error  the first failure
    bool succeeded(std::string& error) const
    {
        error = error_.empty() ? error : error_;
        return error_.empty();
    }

private:
    SqliteDatabase& database_;
    std::string error_;
};

}  // namespace

bool IndexQueries::open(const std::string& path, std::string& error)
{
    database = SqliteDatabase::open(path, SqliteDatabase::Access::read, error);
    if (!database || !IndexSchema::check(*database, error))
    {
        return false;
    }
    const std::string segments = select;
    Preparation prepare(*database);
    find = prepare(segments + reachInto());
    ofStream = prepare(segments + "WHERE camera = ? AND stream = ? ORDER BY epoch, begin_ns, id");
    all = prepare(segments + "ORDER BY begin_ns, id");
    unclosed = prepare(segments + "WHERE closed = 0 ORDER BY begin_ns, id");
    oldestClosed = prepare(segments + "WHERE closed != 0 AND begin_ns >= ? ORDER BY begin_ns, id");
    oldestClosedOfCamera =
        prepare(segments + "WHERE closed != 0 AND begin_ns >= ?1 AND camera = ?2 ORDER BY begin_ns, id");
    firstBefore = prepare(segments + "WHERE closed != 0 AND begin_ns < ? ORDER BY id");
    firstBeforeOfCamera =
        prepare(segments + "WHERE closed != 0 AND begin_ns < ?1 AND camera = ?2 ORDER BY id");
    epochAfter = prepare("SELECT min(epoch) FROM segment WHERE camera = ? AND stream = ? AND epoch > ?");
    // Two searches instead of a comparison of pairs, for which SQLite would read the camera's whole index.
    streamAfter = prepare(
        "SELECT * FROM (SELECT camera, stream FROM segment WHERE camera = ?1 AND stream > ?2"
        " ORDER BY stream LIMIT 1) UNION ALL SELECT * FROM (SELECT camera, stream FROM segment"
        " WHERE camera > ?1 ORDER BY camera, stream LIMIT 1) LIMIT 1");
    beginAfter = prepare("SELECT begin_ns FROM segment WHERE id > ? AND begin_ns >= ? ORDER BY id LIMIT 1");
    newestBegin = prepare("SELECT begin_ns FROM segment ORDER BY begin_ns DESC LIMIT 1");
    count = prepare("SELECT coalesce(sum(segments), 0) FROM camera_sum");
    totalBytes = prepare("SELECT coalesce(sum(bytes), 0) FROM camera_sum");
    bytesOfCamera = prepare("SELECT bytes FROM camera_sum WHERE camera = ?");
    has = prepare("SELECT 1 FROM segment WHERE path = ?");
    return prepare.succeeded(error);
}

bool IndexUpdates::open(const std::string& path, std::string& error)
{
    database = SqliteDatabase::open(path, SqliteDatabase::Access::write, error);
    if (!database || !IndexSchema::bringUpToDate(*database, error))
    {
        return false;
    }
    Preparation prepare(*database);
    add = prepare(insert + firstFreeEpoch() + ")");
    enter = prepare(insert + nextEpoch() +
                    ") ON CONFLICT(path) DO UPDATE SET duration_ns = excluded.duration_ns,"
                    " bytes = excluded.bytes, closed = excluded.closed");
    removePath = prepare("DELETE FROM segment WHERE path = ?");
    close = prepare("UPDATE segment SET duration_ns = ?, bytes = ?, closed = 1 WHERE id = ?");
    remove = prepare("DELETE FROM segment WHERE id = ?");
    return prepare.succeeded(error);
}

}  // namespace refhost
