#include "refhost/base/MountPoint.h"

#include <sys/stat.h>

#include <filesystem>
#include <system_error>

namespace refhost
{

std::optional<dev_t> MountPoint::deviceOf(const std::string& path)
{
    struct stat status
    {
    };
    return ::stat(path.c_str(), &status) == 0 ? std::make_optional(status.st_dev) : std::nullopt;
}

std::string MountPoint::of(const std::string& path)
{
    std::error_code problem;
    std::filesystem::path at = std::filesystem::canonical(path, problem);
    while (!problem && at.has_relative_path() && deviceOf(at.string()) == deviceOf(at.parent_path().string()))
    {
        at = at.parent_path();
    }
    return problem || !at.has_relative_path() ? "" : at.string();
}

}  // namespace refhost
