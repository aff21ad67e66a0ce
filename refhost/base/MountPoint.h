#pragma once
// Tested by tests/refhost/sandbox/Sandbox_test.cpp.

#include <sys/types.h>

#include <optional>
#include <string>

namespace refhost
{

/// Where file systems are mounted. Threads: any; no state.
class MountPoint
{
public:
    /// The folder at or above `path` at which its file system is mounted, without symbolic links; empty where
    /// that is the root, and where the path does not exist.
    static std::string of(const std::string& path);

    /// The device of the file system that a path is on; nothing when the path does not exist.
    static std::optional<dev_t> deviceOf(const std::string& path);
};

}  // namespace refhost
