#pragma once
// Tested by tests/refhost/recording/FullDisk_test.cpp.

#include <string>

namespace refhost
{

/// Tells which files are in use.
class FileUse
{
public:
    /// Whether any process, this one too, has a file open: to play, to copy or to write it.
    /// \returns false also where the file system cannot tell
    static bool isOpenElsewhere(const std::string& path);
};

}  // namespace refhost
