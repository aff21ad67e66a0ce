#pragma once
// Tested by tests/refhost/recording/RecordingIndex_test.cpp.

#include <string>

namespace refhost
{

/// The database file of a directory's index, and SQLite's files beside it. Threads: one at a time for a
/// directory.
class IndexFile
{
public:
    static std::string pathIn(const std::string& directory);

    /// Renames a corrupt index to `index.db.damaged`, or `index.db.damaged-2` and so on beside earlier ones,
    /// and logs it.
    /// \param why  the corruption
    static void setAside(const std::string& directory, const std::string& why);

    /// Makes the file if it is missing, and restricts access to the server's user and group (0640). SQLite
    /// gives its other files the same mode.
    static void restrictAccess(const std::string& directory);
};

}  // namespace refhost
