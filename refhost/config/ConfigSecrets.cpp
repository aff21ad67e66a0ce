#include "refhost/config/ConfigSecrets.h"

#include <sys/stat.h>

#include <algorithm>

#include "refhost/base/Log.h"

namespace refhost
{

bool ConfigSecrets::in(const ServerConfig& config)
{
    const auto inLocation = [](const StreamConfig& stream)
    { return Log::maskUrl(stream.source.location) != stream.source.location; };
    return !config.users.empty() ||
           std::any_of(config.cameras.begin(), config.cameras.end(),
                       [&](const CameraConfig& camera)
                       { return std::any_of(camera.streams.begin(), camera.streams.end(), inLocation); });
}

std::optional<std::string> ConfigSecrets::exposedBy(const std::string& file, const ServerConfig& config)
{
    struct stat status
    {
    };
    if (!in(config) || ::stat(file.c_str(), &status) != 0 || (status.st_mode & S_IROTH) == 0)
    {
        return std::nullopt;
    }
    return "it holds passwords and everybody can read it: chmod o= " + file;
}

}  // namespace refhost
