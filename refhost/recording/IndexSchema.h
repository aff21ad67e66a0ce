#pragma once

#include <string>

#include "refhost/recording/SqliteDatabase.h"

namespace refhost
{

/// The tables of the index of recordings, and how those of earlier versions become the present ones.
/// Threads: the database's.
class IndexSchema
{
public:
    /// Makes the tables of a new database, and brings those of an earlier version up to date.
    /// \param[out] error  why that is impossible: a later version, or what the database says. Nothing is
    ///                    changed then
    static bool bringUpToDate(SqliteDatabase& database, std::string& error);

    /// Whether the tables can be read as they are.
    /// \param[out] error  why not: they are of an earlier or a later version
    static bool check(SqliteDatabase& database, std::string& error);
};

}  // namespace refhost
