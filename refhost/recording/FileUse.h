#pragma once
// Tested by tests/refhost/recording/FullDisk_test.cpp.

#include <string>

namespace refhost
{

/// Detects files that are in use.
class FileUse
{
public:
    /// Whether any process, including this one, has a file open.
    /// \returns false also where the file system does not support leases
    static bool isOpenElsewhere(const std::string& path);
};

}  // namespace refhost
