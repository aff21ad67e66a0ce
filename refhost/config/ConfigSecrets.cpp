#include "refhost/config/ConfigSecrets.h"

#include <sys/stat.h>

#include <algorithm>
#include <array>

#include "refhost/base/Log.h"

namespace refhost
{
namespace
{

bool hasPassword(const UserConfig& user)
{
    return !user.password.empty() || !user.passwordHash.empty();
}

std::optional<std::string> exposed(const std::string& file)
{
    struct stat status
    {
    };
    if (::stat(file.c_str(), &status) != 0 || (status.st_mode & S_IROTH) == 0)
    {
        return std::nullopt;
    }
    return "it holds passwords and everybody can read it: chmod o= " + file;
}

}  // namespace

bool ConfigSecrets::in(const ServerConfig& config)
{
    const auto inLocation = [](const StreamConfig& stream)
    { return Log::maskUrl(stream.source.location) != stream.source.location; };
    const HooksConfig& hooks = config.hooks;
    const std::array<const std::string*, 8> targets{
        &hooks.cameraUp,     &hooks.cameraDown, &hooks.cameraFrozen, &hooks.recordingSegment,
        &hooks.sessionStart, &hooks.sessionEnd, &hooks.talkStart,    &hooks.talkEnd};
    const auto masked = [](const std::string* target) { return Log::maskUrl(*target) != *target; };
    return std::any_of(config.users.begin(), config.users.end(),
                       [](const UserConfig& user) { return hasPassword(user) && !user.inUsersFile; }) ||
           std::any_of(targets.begin(), targets.end(), masked) ||
           std::any_of(config.cameras.begin(), config.cameras.end(),
                       [&](const CameraConfig& camera)
                       { return std::any_of(camera.streams.begin(), camera.streams.end(), inLocation); });
}

std::optional<std::string> ConfigSecrets::exposedBy(const std::string& file, const ServerConfig& config)
{
    return in(config) ? exposed(file) : std::nullopt;
}

std::optional<std::string> ConfigSecrets::exposedByUsersFile(const ServerConfig& config)
{
    const bool some =
        std::any_of(config.users.begin(), config.users.end(),
                    [](const UserConfig& user) { return hasPassword(user) && user.inUsersFile; });
    return some ? exposed(config.usersFile) : std::nullopt;
}

}  // namespace refhost
