#include "refhost/recording/IndexSchema.h"

#include "refhost/recording/SqliteQuery.h"

namespace refhost
{
namespace
{

constexpr int schemaVersion = 2;

constexpr const char* schema =
    "BEGIN;"
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
    "CREATE INDEX segment_unclosed ON segment(closed) WHERE closed = 0;"
    "PRAGMA user_version = 2;"
    "COMMIT;";

/// From version 1, which knew no epochs.
constexpr const char* upgrade =
    "BEGIN;"
    "ALTER TABLE segment ADD COLUMN epoch INTEGER NOT NULL DEFAULT 0;"
    "DROP INDEX segment_of_stream;"
    "CREATE INDEX segment_of_stream ON segment(camera, stream, epoch, begin_ns);"
    "PRAGMA user_version = 2;"
    "COMMIT;";

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
    const bool good = version == schemaVersion || (version == 1 && database.execute(upgrade)) ||
                      (version == 0 && database.execute(schema));
    if (!good)
    {
        error = database.lastError();
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
    if (version == 1)
    {
        error = "it was written by an earlier version of ovrtspd; a server that starts brings it up to date";
        return false;
    }
    return true;
}

}  // namespace refhost
