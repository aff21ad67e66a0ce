#include "refhost/recording/SqliteDatabase.h"

#include <cerrno>
#include <chrono>

namespace refhost
{
namespace
{

// How long to wait for another process that has locked the file, such as a backup. The server's end waits as
// long.
constexpr std::chrono::milliseconds maxBusy{500};

}  // namespace

std::unique_ptr<SqliteDatabase> SqliteDatabase::open(const std::string& path, Access access,
                                                     std::string& error)
{
    const bool writes = access == Access::write;
    const int flags =
        SQLITE_OPEN_NOMUTEX | (writes ? SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE : SQLITE_OPEN_READONLY);
    sqlite3* connection = nullptr;
    const int result = sqlite3_open_v2(path.c_str(), &connection, flags, nullptr);
    std::unique_ptr<SqliteDatabase> database(new SqliteDatabase(connection));
    if (result != SQLITE_OK)
    {
        error = connection == nullptr ? "out of memory" : database->lastError();
        return nullptr;
    }
    sqlite3_busy_timeout(connection, static_cast<int>(maxBusy.count()));
    // With write-ahead logging readers do not wait for the writer, and a commit does not wait for the disk.
    if (writes && !database->execute("PRAGMA journal_mode=WAL; PRAGMA synchronous=NORMAL;"))
    {
        error = database->lastError();
        return nullptr;
    }
    return database;
}

bool SqliteDatabase::isCorrupt(const std::string& path, std::string& error)
{
    sqlite3* connection = nullptr;
    const int result =
        sqlite3_open_v2(path.c_str(), &connection, SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_READWRITE, nullptr);
    SqliteDatabase database(connection);
    if (result != SQLITE_OK)
    {
        return false;
    }
    sqlite3_busy_timeout(connection, static_cast<int>(maxBusy.count()));
    const Statement check = database.prepare("PRAGMA quick_check(1)");
    if (check && sqlite3_step(check.get()) == SQLITE_ROW)
    {
        const auto* const message = reinterpret_cast<const char*>(sqlite3_column_text(check.get(), 0));
        error = message == nullptr ? "" : message;
        return error != "ok";
    }
    error = database.lastError();
    const int problem = sqlite3_errcode(connection);
    return problem == SQLITE_CORRUPT || problem == SQLITE_NOTADB;
}

SqliteDatabase::~SqliteDatabase()
{
    sqlite3_close_v2(connection_);
}

bool SqliteDatabase::execute(const char* sql)
{
    return sqlite3_exec(connection_, sql, nullptr, nullptr, nullptr) == SQLITE_OK;
}

SqliteDatabase::Statement SqliteDatabase::prepare(const char* sql)
{
    sqlite3_stmt* statement = nullptr;
    sqlite3_prepare_v3(connection_, sql, -1, SQLITE_PREPARE_PERSISTENT, &statement, nullptr);
    return Statement(statement);
}

bool SqliteDatabase::isFull() const
{
    // Reported as such, or as a failed operation of the file system.
    const int code = sqlite3_errcode(connection_);
    const int system = sqlite3_system_errno(connection_);
    return code == SQLITE_FULL || (code == SQLITE_IOERR && (system == ENOSPC || system == EDQUOT));
}

std::string SqliteDatabase::lastError() const
{
    return sqlite3_errmsg(connection_);
}

std::int64_t SqliteDatabase::lastInsertedId() const
{
    return sqlite3_last_insert_rowid(connection_);
}

}  // namespace refhost
