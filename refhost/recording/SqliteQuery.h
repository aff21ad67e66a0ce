#pragma once
// Tested by tests/refhost/recording/RecordingIndex_test.cpp.

#include <sqlite3.h>

#include <cstdint>
#include <string>

#include "refhost/base/Times.h"

namespace refhost
{

/// One run of a prepared statement: parameters in the order of their question marks, rows in sequence. Its
/// end resets the statement.
///
///     SqliteQuery query(*find_, cameraId, begin, end);
///     while (query.next())
///     {
///         use(query.number(0), query.text(1));
///     }
///
/// Threads: one at a time.
class SqliteQuery
{
public:
    template <typename... Parameters>
    explicit SqliteQuery(sqlite3_stmt& statement, const Parameters&... parameters) : statement_(statement)
    {
        int index = 0;
        (bind(++index, parameters), ...);
    }
    SqliteQuery(const SqliteQuery&) = delete;
    SqliteQuery& operator=(const SqliteQuery&) = delete;
    ~SqliteQuery()
    {
        sqlite3_reset(&statement_);
        sqlite3_clear_bindings(&statement_);
    }

    /// Steps to the first or next row.
    /// \returns false after the last one, or after a failure: see succeeded()
    bool next()
    {
        result_ = sqlite3_step(&statement_);
        return result_ == SQLITE_ROW;
    }

    /// Runs a statement without results.
    /// \returns false when it failed
    bool run()
    {
        next();
        return succeeded();
    }

    /// Whether the last next() did not fail.
    bool succeeded() const
    {
        return result_ == SQLITE_ROW || result_ == SQLITE_DONE;
    }

    bool isNull(int column) const
    {
        return sqlite3_column_type(&statement_, column) == SQLITE_NULL;
    }
    /// \returns 0 for null
    std::int64_t number(int column) const
    {
        return sqlite3_column_int64(&statement_, column);
    }
    /// \returns a column of nanoseconds since 1970 as a date
    WallTime date(int column) const
    {
        return WallTime(span(column));
    }
    /// \returns a column of nanoseconds as a span
    Duration span(int column) const
    {
        return Duration(number(column));
    }
    std::string text(int column) const
    {
        const auto* const bytes = reinterpret_cast<const char*>(sqlite3_column_text(&statement_, column));
        return bytes == nullptr ? std::string() : std::string(bytes);
    }

private:
    void bind(int index, std::int64_t value)
    {
        sqlite3_bind_int64(&statement_, index, value);
    }
    void bind(int index, Duration value)
    {
        bind(index, std::int64_t{value.count()});
    }
    void bind(int index, WallTime value)
    {
        bind(index, value.time_since_epoch());
    }
    void bind(int index, const std::string& value)
    {
        sqlite3_bind_text(&statement_, index, value.data(), static_cast<int>(value.size()), SQLITE_TRANSIENT);
    }

    sqlite3_stmt& statement_;
    int result_ = SQLITE_DONE;
};

}  // namespace refhost
