#include "refhost/recording/IndexSchema.h"

#include "refhost/recording/SqliteQuery.h"

namespace refhost
{
namespace
{

constexpr int schemaVersion = 3;

constexpr const char* segments =
    "CREATE TABLE segment("
    " id INTEGER PRIMARY KEY,"
    " camera INTEGER NOT NULL,"
    " stream INTEGER NOT NULL,"
    " begin_ns INTEGER NOT NULL,"
    " duration_ns INTEGER NOT NULL,"
    " bytes INTEGER NOT NULL,"
    " path TEXT NOT NULL UNIQUE,"  // below the directory, which may move
    " closed INTEGER NOT NULL,"
    " epoch INTEGER NOT NULL);"
    "CREATE INDEX segment_of_stream ON segment(camera, stream, epoch, begin_ns);"
    "CREATE INDEX segment_by_length ON segment(camera, stream, duration_ns);"
    "CREATE INDEX segment_by_age ON segment(begin_ns);"
    "CREATE INDEX segment_unclosed ON segment(closed) WHERE closed = 0;";

/// Version 1 knew no epochs.
constexpr const char* addEpochs =
    "ALTER TABLE segment ADD COLUMN epoch INTEGER NOT NULL DEFAULT 0;"
    "DROP INDEX segment_of_stream;"
    "CREATE INDEX segment_of_stream ON segment(camera, stream, epoch, begin_ns);";

/// Versions 1 and 2 knew no sums: they were computed from all segments whenever the limits were checked.
constexpr const char* addSums =
    "CREATE INDEX segment_of_camera ON segment(camera, begin_ns);"
    "CREATE TABLE camera_sum("
    " camera INTEGER PRIMARY KEY,"
    " segments INTEGER NOT NULL,"
    " bytes INTEGER NOT NULL);"
    "INSERT INTO camera_sum SELECT camera, count(*), sum(bytes) FROM segment GROUP BY camera;"
    "CREATE TRIGGER segment_added AFTER INSERT ON segment BEGIN"
    " INSERT INTO camera_sum VALUES(new.camera, 1, new.bytes) ON CONFLICT(camera) DO UPDATE"
    " SET segments = segments + 1, bytes = bytes + excluded.bytes; END;"
    "CREATE TRIGGER segment_removed AFTER DELETE ON segment BEGIN"
    " UPDATE camera_sum SET segments = segments - 1, bytes = bytes - old.bytes WHERE camera = old.camera; "
    "END;"
    "CREATE TRIGGER segment_changed AFTER UPDATE OF bytes ON segment BEGIN"
    " UPDATE camera_sum SET bytes = bytes + new.bytes - old.bytes WHERE camera = new.camera; END;";

/// The statements that bring an index of `version` up to date, in one transaction.
std::string upgradeFrom(int version)
{
    std::string statements = "BEGIN IMMEDIATE;";
    statements += version == 0 ? segments : "";
    statements += version == 1 ? addEpochs : "";
    statements += addSums;
    return statements + "PRAGMA user_version = " + std::to_string(schemaVersion) + ";COMMIT;";
}

constexpr const char* tooNew = "it was written by a later version of ovrtspd";

int versionOf(SqliteDatabase& database)
{
    const SqliteDatabase::Statement statement = database.prepare("PRAGMA user_version");
    if (!statement)
    {
        return -1;
    }
    SqliteQuery query(*statement);
    return query.next() ? static_cast<int>(query.number(0)) : -1;
}

}  // namespace

bool IndexSchema::bringUpToDate(SqliteDatabase& database, std::string& error)
{
    const int version = versionOf(database);
    if (version > schemaVersion)
    {
        error = tooNew;
        return false;
    }
    const bool good =
        version == schemaVersion || (version >= 0 && database.execute(upgradeFrom(version).c_str()));
    if (!good)
    {
        error = database.lastError();
        database.execute("ROLLBACK");
    }
    return good;
}

bool IndexSchema::check(SqliteDatabase& database, std::string& error)
{
    const int version = versionOf(database);
    if (version > schemaVersion)
    {
        error = tooNew;
        return false;
    }
    if (version > 0 && version < schemaVersion)
    {
        error = "it was written by an earlier version of ovrtspd; a server that starts brings it up to date";
        return false;
    }
    return true;
}

}  // namespace refhost
