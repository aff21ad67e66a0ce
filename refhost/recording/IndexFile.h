#pragma once
// Tested by tests/refhost/recording/RecordingIndex_test.cpp.

#include <string>

namespace refhost
{

/// The database file of a directory's index, and those that SQLite keeps beside it. Threads: any, one at a
/// time for a directory.
class IndexFile
{
public:
    static std::string pathIn(const std::string& directory);

    /// Renames a damaged one to `index.db.damaged`, or `index.db.damaged-2` and so on beside earlier ones,
    /// with a line in the log. \param why  what is damaged
    static void setAside(const std::string& directory, const std::string& why);

    /// Makes it, if it is missing, or leaves it readable for the server's user and group alone (0640). SQLite
    /// makes its other files like it.
    static void restrictAccess(const std::string& directory);
};

}  // namespace refhost
