#pragma once
// Tested by tests/refhost/recording/RecordingIndex_test.cpp.

#include <sqlite3.h>

#include <cstdint>
#include <memory>
#include <string>

namespace refhost
{

/// One connection to a SQLite database, closed with the object.
///
/// Threads: one at a time; the owner guards a connection and its statements by a lock.
class SqliteDatabase
{
public:
    enum class Access
    {
        read,  ///< the file must exist
        write  ///< makes a missing file; switches to write-ahead logging
    };

    struct Finalize
    {
        void operator()(sqlite3_stmt* statement) const
        {
            sqlite3_finalize(statement);
        }
    };
    /// A prepared statement; not to outlive its connection. Run by SqliteQuery.
    using Statement = std::unique_ptr<sqlite3_stmt, Finalize>;

    /// \param[out] error  why not, in plain words
    /// \returns null with `error` set when the file cannot be opened
    static std::unique_ptr<SqliteDatabase> open(const std::string& path, Access access, std::string& error);

    /// Checks a file's structure, which takes about a second for a million rows.
    /// \param[out] error  what is wrong, in plain words
    /// \returns true when it is no database or a corrupt one; false also when it does not exist or cannot be
    ///          read
    static bool isCorrupt(const std::string& path, std::string& error);

    SqliteDatabase(const SqliteDatabase&) = delete;
    SqliteDatabase& operator=(const SqliteDatabase&) = delete;
    ~SqliteDatabase();

    /// Runs one or more statements without results.
    /// \returns false when one failed; see lastError()
    bool execute(const char* sql);

    /// \returns null when the statement is invalid; see lastError()
    Statement prepare(const char* sql);

    /// Whether the last operation failed because the disk is full.
    bool isFull() const;
    /// The database's last error.
    std::string lastError() const;
    std::int64_t lastInsertedId() const;

private:
    explicit SqliteDatabase(sqlite3* connection) : connection_(connection) {}

    sqlite3* connection_;
};

}  // namespace refhost
