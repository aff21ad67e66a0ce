#include "refhost/config/Config.h"

#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <optional>
#include <thread>

#include "refhost/base/DiskSpace.h"
#include "refhost/base/Log.h"
#include "refhost/base/Quantity.h"
#include "refhost/base/SocketAddress.h"
#include "refhost/base/StreamName.h"
#include "refhost/config/ConfigKeys.h"
#include "refhost/config/ConfigSections.h"

namespace refhost
{
namespace
{

bool isLoopback(const std::string& numeric)
{
    const auto address = SocketAddress::parse(numeric);
    return address && address->isLoopback();
}

template <typename Section>
bool sameValue(const ChoiceSetting<Section>& setting, const Section& a, const Section& b)
{
    return setting.get(a) == setting.get(b);
}

template <typename Section, template <typename> typename Setting>
bool sameValue(const Setting<Section>& setting, const Section& a, const Section& b)
{
    return setting.value.of(a) == setting.value.of(b);
}

// Whether all keys, and all sections within, have the same values.
template <typename Section>
bool same(const Section& a, const Section& b)
{
    const auto& keys = configKeys<Section>();
    bool all = std::all_of(
        keys.begin(), keys.end(),
        [&](const ConfigKey<Section>& key)
        { return std::visit([&](const auto& setting) { return sameValue(setting, a, b); }, key.setting); });
    eachSectionIn<Section>([&](const auto& section) { all = all && a.*section.values == b.*section.values; });
    return all;
}

/// What is wrong with the limits of recordings on the disk that they are kept on; or empty.
std::string sizeProblem(const ServerConfig& config)
{
    const auto records = [](const CameraConfig& camera)
    {
        return std::any_of(camera.streams.begin(), camera.streams.end(),
                           [](const StreamConfig& stream) { return stream.isRecorded(); });
    };
    if (std::none_of(config.cameras.begin(), config.cameras.end(), records))
    {
        return {};
    }
    // The folder itself may not have been made yet.
    std::filesystem::path path = config.recording.directory;
    std::optional<DiskSpace> disk = DiskSpace::of(path.string());
    while (!disk && path.has_relative_path())
    {
        path = path.parent_path();
        disk = DiskSpace::of(path.empty() ? "." : path.string());
    }
    const auto minFree = FreeSpace::parse(config.recording.minFree);
    if (!disk || !minFree)
    {
        return {};
    }
    const std::int64_t usable = disk->capacity - minFree->bytesOf(disk->capacity);
    if (usable <= 0)
    {
        return "nothing can be recorded: min-free of [recording] is the whole disk of " +
               config.recording.directory;
    }
    // A limit that somebody chose, and not the default.
    if (config.recording.maxSize > usable && config.recording.maxSize != RecordingConfig().maxSize)
    {
        return "max-size of [recording] is " + sizeText(config.recording.maxSize) + ", and the disk of " +
               config.recording.directory + " has " + roundedSizeText(usable) +
               " besides min-free: recordings are removed before they reach it";
    }
    return {};
}

}  // namespace

bool SourceConfig::operator==(const SourceConfig& other) const
{
    return kind == other.kind && location == other.location && transport == other.transport &&
           tlsVerify == other.tlsVerify && tlsFingerprint == other.tlsFingerprint;
}

std::vector<Codec> StreamConfig::codecs() const
{
    std::vector<Codec> all;
    for (const std::optional<Codec>& codec : {videoCodec, audioCodec})
    {
        if (codec)
        {
            all.push_back(*codec);
        }
    }
    return all;
}

std::string_view nameOf(RecordMode mode)
{
    switch (mode)
    {
        case RecordMode::never:
            return "never";
        case RecordMode::events:
            return "events";
        case RecordMode::always:
            break;
    }
    return "always";
}

bool StreamConfig::operator==(const StreamConfig& other) const
{
    return same(*this, other);
}

bool CameraConfig::operator==(const CameraConfig& other) const
{
    return same(*this, other);
}

std::string CameraConfig::streamName(int streamId) const
{
    return StreamName::of(id, streamId, name);
}

bool GrantsConfig::empty() const
{
    return live.empty() && playback.empty() && talk.empty() && admin.empty();
}

bool GroupConfig::operator==(const GroupConfig& other) const
{
    return same(*this, other);
}

std::vector<std::string> UserConfig::groupNames() const
{
    std::vector<std::string> names;
    for (std::size_t start = 0; start < groups.size();)
    {
        const std::size_t comma = std::min(groups.find(',', start), groups.size());
        const std::size_t first = groups.find_first_not_of(' ', start);
        const std::size_t last = groups.find_last_not_of(' ', comma - 1);
        if (first < comma && last != std::string::npos)
        {
            names.push_back(groups.substr(first, last + 1 - first));
        }
        start = comma + 1;
    }
    return names;
}

bool UserConfig::unlimited() const
{
    return grants.empty() && groupNames().empty() && !isAnonymous();
}

bool UserConfig::isAnonymous() const
{
    return name == anonymous && password.empty() && passwordHash.empty();
}

bool UserConfig::operator==(const UserConfig& other) const
{
    return same(*this, other);
}

bool TalkBackConfig::operator==(const TalkBackConfig& other) const
{
    return same(*this, other);
}

bool MulticastConfig::operator==(const MulticastConfig& other) const
{
    return same(*this, other);
}

bool RecordingConfig::operator==(const RecordingConfig& other) const
{
    return same(*this, other);
}

bool LimitsConfig::operator==(const LimitsConfig& other) const
{
    return same(*this, other);
}

bool AuthConfig::operator==(const AuthConfig& other) const
{
    return same(*this, other);
}

bool TlsConfig::operator==(const TlsConfig& other) const
{
    return same(*this, other);
}

bool TunnelConfig::operator==(const TunnelConfig& other) const
{
    return same(*this, other);
}

bool HttpConfig::operator==(const HttpConfig& other) const
{
    return same(*this, other);
}

bool HooksConfig::operator==(const HooksConfig& other) const
{
    return same(*this, other);
}

bool SrtpConfig::operator==(const SrtpConfig& other) const
{
    return same(*this, other);
}

bool ServerConfig::operator==(const ServerConfig& other) const
{
    return same(*this, other);
}

ServerConfig ServerConfig::embedded()
{
    ServerConfig config;
    config.cameras = embeddedCameras();
    config.cameras.front().streams.front().record = RecordMode::always;
    return config;
}

std::vector<CameraConfig> ServerConfig::embeddedCameras()
{
    StreamConfig main;
    StreamConfig sub;
    sub.id = 1;
    sub.width = 640;
    sub.height = 360;
    sub.bitRate = 500;
    return {CameraConfig{1, "synthetic camera", {main, sub}}};
}

std::string ServerConfig::streamName(int cameraId, int streamId) const
{
    const auto camera = std::find_if(cameras.begin(), cameras.end(),
                                     [cameraId](const CameraConfig& c) { return c.id == cameraId; });
    return camera == cameras.end() ? StreamName::of(cameraId, streamId) : camera->streamName(streamId);
}

int ServerConfig::loopCount() const
{
    constexpr unsigned maxLoops = 4;
    return threads > 0 ? threads
                       : static_cast<int>(std::clamp(std::thread::hardware_concurrency(), 1U, maxLoops));
}

bool ServerConfig::requiresProtection(std::string_view protection) const
{
    return security == protection ||
           std::any_of(cameras.begin(), cameras.end(),
                       [&](const CameraConfig& camera) { return camera.security == protection; });
}

bool ServerConfig::offersTalkBack() const
{
    return std::any_of(cameras.begin(), cameras.end(),
                       [](const CameraConfig& camera) { return camera.talkBack.has_value(); });
}

std::vector<std::string> ServerConfig::warnings() const
{
    std::vector<std::string> found;
    if (users.empty() && !isLoopback(listen))
    {
        found.push_back("anybody who reaches " + listen +
                        " can watch: it is no loopback address and no [[user]] is configured");
    }
    for (const UserConfig& user : users)
    {
        if (user.unlimited())
        {
            found.push_back("user \"" + Log::safe(user.name) +
                            "\" may do everything, for nothing limits this password: give live, playback, "
                            "talk or admin, each with \"*\" or numbers of cameras");
        }
    }
    const auto httpAddress = SocketAddress::parseWithPort(http.listen);
    if (users.empty() && httpAddress && !httpAddress->isLoopback())
    {
        found.push_back(
            "anybody who reaches " + http.listen +
            " over HTTP can see what the server does: it is no loopback address and no [[user]] is "
            "configured");
    }
    if (http.tls && !tls.enabled())
    {
        found.push_back(
            "there is no HTTP service: tls of [http] is true and [tls] has neither a certificate nor "
            "self-signed = true");
    }
    if (!tls.enabled() && (!tls.key.empty() || !tls.clientCa.empty()))
    {
        found.push_back("there is no TLS: [tls] has neither a certificate nor self-signed = true");
    }
    if (tls.certificateUsers && tls.clientCa.empty())
    {
        found.push_back("nobody logs in by certificate: [tls] has no client-ca");
    }
    if (users.empty() && tls.enabled() && tls.clientCa.empty() && !tls.listen.empty() &&
        !isLoopback(tls.listen))
    {
        found.push_back("anybody who reaches " + tls.listen +
                        " can watch over TLS: it is no loopback address and no [[user]] is configured");
    }
    if (requiresProtection("tls") && !tls.enabled())
    {
        found.push_back("security = \"tls\" lets nobody watch: there is no TLS");
    }
    const bool sendsKeys = requiresProtection("srtp") || requiresProtection("any-encrypted");
    if (sendsKeys && srtp.keys == "always")
    {
        found.push_back(
            "whoever reads an RTSP connection without TLS can read its SRTP keys: keys of [srtp] is "
            "\"always\"");
    }
    if (offersTalkBack() && talkBack.output == "null")
    {
        found.push_back("nobody will hear what clients say: the output of [talk-back] is \"null\"");
    }
    if (const std::string problem = sizeProblem(*this); !problem.empty())
    {
        found.push_back(problem);
    }
    for (const CameraConfig& camera : cameras)
    {
        for (const StreamConfig& stream : camera.streams)
        {
            const bool isUrl = stream.source.isCamera();
            if (isUrl &&
                Log::userInfo(stream.source.location).find_first_of("@/?# \"<>") != std::string::npos)
            {
                found.push_back(
                    camera.streamName(stream.id) +
                    ": user name and password in its location hold characters that a URL cannot "
                    "hold there: write them percent-encoded, %40 for @, %2F for /, %3F for ?, %23 for #");
            }
            const bool isPath = stream.source.kind == SourceConfig::Kind::file ||
                                stream.source.kind == SourceConfig::Kind::v4l2;
            if (isPath && access(stream.source.location.c_str(), R_OK) != 0)
            {
                found.push_back(camera.streamName(stream.id) + ": " + stream.source.location +
                                " cannot be read now");
            }
        }
    }
    return found;
}

}  // namespace refhost
