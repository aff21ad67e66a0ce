#include "refhost/doctor/FilesCheck.h"

#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <system_error>

#include "refhost/base/Log.h"
#include "refhost/doctor/Recordings.h"

namespace refhost
{
namespace
{

namespace fs = std::filesystem;

/// The user's name, as commands take it.
std::string me()
{
    return std::to_string(::geteuid());
}

/// A folder that is written to, or made in the first one above it that exists.
Finding judgedFolder(const std::string& folder, const char* key)
{
    const fs::path existing = existingParent(folder);
    std::error_code ignored;
    const std::string path = Log::safe(existing.string());
    if (!fs::is_directory(existing, ignored))
    {
        return Finding::failure(fmt::format("{} = {}: {} is no folder", key, Log::safe(folder), path),
                                fmt::format("Choose another {}", key));
    }
    if (::access(existing.c_str(), W_OK | X_OK) == 0)
    {
        return Finding::good(fmt::format("{} {} can be written", key, Log::safe(folder)));
    }
    const int reason = errno;
    if (reason == EROFS)
    {
        return Finding::failure(
            fmt::format("{} = {}: {} is read-only", key, Log::safe(folder), path),
            "Mount it writable; under systemd add ReadWritePaths= with it (systemctl edit ovrtspd)");
    }
    return Finding::failure(
        fmt::format("{} = {}: {} cannot be written: {}", key, Log::safe(folder), path, std::strerror(reason)),
        fmt::format("chown it to the service's user (this one is number {})", me()));
}

Finding judgedSource(const StreamConfig& stream, const std::string& title)
{
    const std::string& path = stream.source.location;
    const bool device = stream.source.kind == SourceConfig::Kind::v4l2;
    const std::string displayed = Log::safe(path);
    struct stat status
    {
    };
    if (::stat(path.c_str(), &status) != 0)
    {
        return Finding::failure(
            fmt::format("{}: {}: {}", title, displayed, std::strerror(errno)),
            device
                ? "Connect the device, or correct location; \"v4l2-ctl --list-devices\" lists what there is"
                : "Correct location: a path relative to the configuration's folder, or an absolute one");
    }
    if (S_ISDIR(status.st_mode))
    {
        return Finding::failure(fmt::format("{}: {} is a folder", title, displayed),
                                "Name a media file in location");
    }
    if (::access(path.c_str(), device ? R_OK | W_OK : R_OK) != 0)
    {
        return Finding::failure(
            fmt::format("{}: {} cannot be opened by this user: {}", title, displayed, std::strerror(errno)),
            device ? "Add the service's user to the group video: adduser ovrtspd video"
                   : "Let the service's user read it: chmod o+r, or chgrp ovrtspd and chmod g+r");
    }
    return Finding::good(fmt::format("{}: {} can be read", title, displayed));
}

}  // namespace

FilesCheck::FilesCheck(const ServerConfig& config) : config_(config) {}

std::string FilesCheck::subject() const
{
    return "permissions";
}

std::vector<Finding> FilesCheck::run()
{
    std::vector<Finding> found;
    if (recordsAnything(config_))
    {
        found.push_back(judgedFolder(config_.recording.directory, "[recording] directory"));
    }
    if (config_.tls.selfSigned)
    {
        found.push_back(judgedFolder(config_.tls.directory, "[tls] directory"));
    }
    if (config_.offersTalkBack() && config_.talkBack.output == "wav")
    {
        const std::string folder = fs::path(config_.talkBack.device).parent_path().string();
        found.push_back(judgedFolder(folder.empty() ? "." : folder, "[talk-back] device"));
    }
    for (const CameraConfig& camera : config_.cameras)
    {
        for (const StreamConfig& stream : camera.streams)
        {
            const SourceConfig::Kind kind = stream.source.kind;
            if (kind == SourceConfig::Kind::file || kind == SourceConfig::Kind::v4l2)
            {
                found.push_back(judgedSource(stream, camera.streamName(stream.id)));
            }
        }
    }
    return found;
}

}  // namespace refhost
