#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace refhost
{

/// The room of a file system. \see statvfs(3)
struct DiskSpace
{
    std::int64_t capacity = 0;   ///< bytes
    std::int64_t available = 0;  ///< bytes, to users without privileges
    std::int64_t files = 0;      ///< max number of files; 0: no limit
    std::int64_t availableFiles = 0;

    /// The room of the file system of a path.
    /// \returns nothing when the path does not exist or the file system does not answer
    static std::optional<DiskSpace> of(const std::string& path);
};

/// How much of a disk is to stay free: a share of it, or bytes.
class FreeSpace
{
public:
    /// Parses "5%", "2GiB", "0", or "auto": 5 % or 1 GiB, whichever is less.
    /// \returns nothing for another text and for more than 99 %
    static std::optional<FreeSpace> parse(std::string_view text);

    /// Bytes of a disk of that capacity.
    std::int64_t bytesOf(std::int64_t capacity) const;

private:
    double share_ = 0;        ///< of the capacity
    std::int64_t bytes_ = 0;  ///< at least, or with `lesser_` at most
    bool lesser_ = false;
};

}  // namespace refhost
