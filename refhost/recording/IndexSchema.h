#pragma once

#include <string>

#include "refhost/recording/SqliteDatabase.h"

namespace refhost
{

/// The tables of the index of recordings, and their upgrade from earlier versions. Threads: as of the
/// database.
class IndexSchema
{
public:
    /// Makes the tables of a new database; upgrades those of an earlier version.
    /// \param[out] error  why not: a later version, or the database's error
    /// \returns false with `error` set when nothing was changed
    static bool bringUpToDate(SqliteDatabase& database, std::string& error);

    /// Whether the tables have the present version.
    /// \param[out] error  why not
    static bool check(SqliteDatabase& database, std::string& error);
};

}  // namespace refhost
