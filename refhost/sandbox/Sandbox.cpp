#include "refhost/sandbox/Sandbox.h"

#include <fmt/format.h>
#include <sys/prctl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <sstream>
#include <system_error>
#include <vector>

#include "refhost/base/Log.h"
#include "refhost/base/MountPoint.h"
#include "refhost/sandbox/SystemCallFilter.h"

namespace refhost
{
namespace
{

namespace fs = std::filesystem;

/// The folder above a path, where it is not the whole file system: then the path itself.
std::string folderAbove(const fs::path& path)
{
    const fs::path above = path.parent_path();
    return (above.empty() || above == above.root_path() ? path : above).string();
}

fs::path absoluteOf(const std::string& path)
{
    std::error_code ignored;
    fs::path result = fs::absolute(path, ignored).lexically_normal();
    return result.has_filename() ? result : result.parent_path();
}

/// For the server's user and group, as the parts make them that use them. What fails is reported by these.
void makeFolders(const fs::path& folder)
{
    constexpr mode_t mode = 0750;
    fs::path made;
    for (const fs::path& part : folder)
    {
        made /= part;
        ::mkdir(made.c_str(), mode);
    }
}

/// A folder in which the server makes files; where it is missing, the nearest one above it.
/// \returns false when the folder may come and go with its disk, which is mounted at the top of the file system
bool permitWriting(const std::string& path, FileLimits& limits)
{
    const fs::path folder = absoluteOf(path);
    std::error_code ignored;
    fs::path existing = folder;
    while (!fs::exists(existing, ignored) && existing.has_relative_path())
    {
        existing = existing.parent_path();
    }
    const bool missing = existing != folder;
    existing = fs::canonical(existing, ignored);
    // The folder may be removed and made again, and its disk mounted again: in the folder above it.
    limits.write(folderAbove(folder));
    limits.write(missing ? existing.string() : folderAbove(existing));
    const fs::path disk = MountPoint::of(existing.string());
    if (!disk.empty())
    {
        limits.write(folderAbove(disk));
    }
    const bool atTop = !disk.empty() && disk.parent_path() == disk.root_path();
    return existing.has_relative_path() && !atTop;
}

/// Files are replaced by others of their name: their folder counts.
void permitReading(const std::string& file, FileLimits& limits)
{
    if (!file.empty())
    {
        limits.read(folderAbove(absoluteOf(file)));
    }
}

void permitVariable(const char* name, FileLimits& limits)
{
    const char* const value = std::getenv(name);
    std::istringstream folders(value == nullptr ? "" : value);
    for (std::string folder; std::getline(folders, folder, ':');)
    {
        if (!folder.empty())
        {
            limits.read(folder);
        }
    }
}

void permitSystem(FileLimits& limits)
{
    for (const char* const folder : {"/usr", "/lib", "/lib32", "/lib64", "/bin", "/etc", "/opt", "/proc",
                                     "/sys", "/run", "/var/cache", "/var/lib/alsa"})
    {
        limits.read(folder);
    }
    for (const char* const name :
         {"GST_PLUGIN_PATH", "GST_PLUGIN_PATH_1_0", "GST_PLUGIN_SYSTEM_PATH", "GST_PLUGIN_SYSTEM_PATH_1_0",
          "LD_LIBRARY_PATH", "ALSA_CONFIG_PATH", "ALSA_CONFIG_DIR", "ALSA_PLUGIN_DIR", "SSL_CERT_DIR",
          "FONTCONFIG_PATH", "TZDIR"})
    {
        permitVariable(name, limits);
    }
    for (const char* const name : {"SSL_CERT_FILE", "PULSE_COOKIE", "FONTCONFIG_FILE", "PULSE_CLIENTCONFIG"})
    {
        const char* const value = std::getenv(name);
        permitReading(value == nullptr ? "" : value, limits);
    }
    limits.devices("/dev");
    // Temporary files of libraries, and sockets and caches of the user's.
    for (const char* const name : {"TMPDIR", "XDG_RUNTIME_DIR", "XDG_CACHE_HOME"})
    {
        if (const char* const value = std::getenv(name))
        {
            limits.write(value);
        }
    }
    limits.write("/tmp");
    limits.write("/var/tmp");
    if (const char* const home = std::getenv("HOME"))
    {
        for (const char* const inside : {"/.config/pulse", "/.pulse", "/.cache"})
        {
            limits.write(std::string(home) + inside);
        }
        for (const char* const inside :
             {"/.asoundrc", "/.config/alsa", "/.fonts", "/.config/fontconfig", "/.local/share"})
        {
            limits.read(std::string(home) + inside);
        }
    }
}

}  // namespace

bool Sandbox::limitsFor(const ServerConfig& config, const std::string& configFile, FileLimits& limits,
                        std::string& problem)
{
    permitSystem(limits);
    permitReading(configFile, limits);
    permitReading(config.usersFile, limits);
    permitReading(config.tls.certificate, limits);
    permitReading(config.tls.key, limits);
    permitReading(config.tls.clientCa, limits);
    const auto writeIn = [&limits, &problem](const std::string& folder, const char* key)
    {
        // A limit can only name what there is.
        makeFolders(absoluteOf(folder));
        if (!permitWriting(folder, limits) && problem.empty())
        {
            problem =
                fmt::format("{} {} is, or is on, a disk mounted directly below /", key, Log::safe(folder));
        }
    };
    if (config.tls.selfSigned)
    {
        writeIn(config.tls.directory, "[tls] directory");
    }
    if (config.offersTalkBack() && config.talkBack.output == "wav")
    {
        permitWriting(absoluteOf(config.talkBack.device).parent_path().string(), limits);
    }
    bool records = false;
    for (const CameraConfig& camera : config.cameras)
    {
        for (const StreamConfig& stream : camera.streams)
        {
            records = records || stream.isRecorded();
            if (stream.source.kind == SourceConfig::Kind::launch && problem.empty())
            {
                problem = camera.streamName(stream.id) + " is a launch line, which may use any";
            }
            if (stream.source.kind == SourceConfig::Kind::file)
            {
                permitReading(stream.source.location, limits);
            }
        }
    }
    std::error_code ignored;
    if (records || fs::exists(absoluteOf(config.recording.directory), ignored))
    {
        // What was recorded is kept within its limits and played, though nothing be recorded at present.
        writeIn(config.recording.directory, "[recording] directory");
    }
    return problem.empty();
}

std::string Sandbox::unavailable()
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    return "this build has sanitizers, which need more";
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer) || __has_feature(memory_sanitizer)
    return "this build has sanitizers, which need more";
#endif
#endif
#ifdef OV_COVERAGE
    return "this build writes which lines ran";
#endif
    return "";
}

void Sandbox::enter(const ServerConfig& config, const std::string& configFile)
{
    const std::string reason = config.sandbox ? unavailable() : "switched off";
    // The programs that libraries start inherit it, too.
    const bool noNewPrivileges = ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0;
    if (!noNewPrivileges)
    {
        Log::warning("the system does not bar new privileges: {}", std::strerror(errno));
    }
    if (!reason.empty())
    {
        Log::info("sandbox: off: {}", reason);
        return;
    }
    FileLimits limits;
    std::string unknown;
    std::string files = "limited to the configuration's and the system's";
    std::string problem;
    if (!limitsFor(config, configFile, limits, unknown))
    {
        files = "not limited: " + unknown;
    }
    else if (!limits.apply(problem))
    {
        files = "not limited";
        Log::warning("sandbox: files are not limited: {}", problem);
    }
    std::string calls = "filtered";
    if (!SystemCallFilter::apply(problem))
    {
        calls = "not filtered";
        Log::warning("sandbox: system calls are not filtered: {}", problem);
    }
    Log::info("sandbox: {}; system calls {}; files {}",
              noNewPrivileges ? "no new privileges" : "new privileges are not barred", calls, files);
}

}  // namespace refhost
