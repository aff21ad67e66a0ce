#include "refhost/config/ConfigCheck.h"

#include <arpa/inet.h>
#include <fmt/format.h>
#include <netinet/in.h>

#include <algorithm>
#include <numeric>

#include "refhost/base/Decimal.h"
#include "refhost/base/DiskSpace.h"
#include "refhost/base/Log.h"
#include "refhost/base/Quantity.h"
#include "refhost/base/SocketAddress.h"
#include "refhost/config/CameraSet.h"
#include "refhost/config/ConfigHints.h"
#include "refhost/config/ConfigSections.h"
#include "refhost/config/PasswordHash.h"
#include "refhost/net/tls/CertificateFingerprint.h"
#include "refhost/rtp/multicast/MulticastGroup.h"

namespace refhost
{
namespace
{

std::size_t editDistance(std::string_view a, std::string_view b)
{
    std::vector<std::size_t> row(b.size() + 1);
    std::iota(row.begin(), row.end(), 0U);
    for (std::size_t i = 1; i <= a.size(); ++i)
    {
        std::size_t diagonal = row[0];
        row[0] = i;
        for (std::size_t j = 1; j <= b.size(); ++j)
        {
            const std::size_t replaced = diagonal + (a[i - 1] == b[j - 1] ? 0 : 1);
            diagonal = row[j];
            row[j] = std::min({row[j] + 1, row[j - 1] + 1, replaced});
        }
    }
    return row.back();
}

// The key in the spelling of this configuration: log-level for log_level and logLevel.
std::string normalized(std::string_view name)
{
    std::string out;
    for (const char c : name)
    {
        if (c == '-' || c == '_')
        {
            continue;
        }
        out += static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
    }
    return out;
}

template <typename Section>
bool has(std::string_view name)
{
    const auto& keys = configKeys<Section>();
    return std::any_of(keys.begin(), keys.end(),
                       [name](const ConfigKey<Section>& key) { return key.answersTo(name); });
}

// The heading of the first section within `Section` that has the key; empty: none.
template <typename Section>
std::string sectionWith(std::string_view name)
{
    std::string found;
    eachSectionIn<Section>(
        [&](const auto& section)
        {
            using Values = ValuesOf<decltype(section)>;
            if (found.empty())
            {
                found = has<Values>(name) ? section.heading() : sectionWith<Values>(name);
            }
        });
    return found;
}

std::string sectionOf(std::string_view name)
{
    return has<ServerConfig>(name) ? "the top of the file, before the first section"
                                   : sectionWith<ServerConfig>(name);
}

bool isControl(char c)
{
    const auto byte = static_cast<unsigned char>(c);
    return byte < 0x20 || byte == 0x7f;
}

/// As shells write paths.
bool isInHome(const std::string& path)
{
    return path.front() == '~' && (path.size() == 1 || path[1] == '/');
}

bool isAddress(const std::string& text)
{
    in6_addr six{};
    in_addr four{};
    return inet_pton(AF_INET, text.c_str(), &four) == 1 || inet_pton(AF_INET6, text.c_str(), &six) == 1;
}

std::string assignText(ServerConfig& config, const NumberSetting<ServerConfig>& setting,
                       const std::string& text)
{
    const auto value = parseDecimal<std::int64_t>(text);
    return value ? ConfigCheck::assign(setting, *value, config)
                 : "must be a whole number, not " + Log::safe(text, 40);
}

std::string assignText(ServerConfig& config, const QuantitySetting<ServerConfig>& setting,
                       const std::string& text)
{
    const auto bare = parseDecimal<std::int64_t>(text);
    return bare ? ConfigCheck::assign(setting, *bare, config) : ConfigCheck::assign(setting, text, config);
}

std::string assignText(ServerConfig& config, const FlagSetting<ServerConfig>& setting,
                       const std::string& text)
{
    if (text != "true" && text != "false")
    {
        return "must be true or false, not " + Log::safe(text, 40);
    }
    setting.value.in(config) = text == "true";
    return {};
}

template <template <typename> typename Setting>
std::string assignText(ServerConfig& config, const Setting<ServerConfig>& setting, const std::string& text)
{
    return ConfigCheck::assign(setting, text, config);
}

}  // namespace

std::string ConfigCheck::setServerKey(ServerConfig& config, std::string_view key, const std::string& text)
{
    const auto& keys = configKeys<ServerConfig>();
    const auto found = std::find_if(keys.begin(), keys.end(),
                                    [key](const ConfigKey<ServerConfig>& k) { return k.name == key; });
    if (found == keys.end())
    {
        return "is no key of the configuration";
    }
    return std::visit([&](const auto& setting) { return assignText(config, setting, text); }, found->setting);
}

std::string ConfigCheck::side(const std::optional<Codec>& codec, int pixels)
{
    const CodecInfo* const info = codec ? &infoOf(*codec) : nullptr;
    if (info == nullptr || info->maxSide == 0 || (pixels <= info->maxSide && pixels % info->sideStep == 0))
    {
        return {};
    }
    return fmt::format("must be a multiple of {} up to {} with video = \"{}\", not {}", info->sideStep,
                       info->maxSide, info->name, pixels);
}

std::string ConfigCheck::source(const SourceConfig& source)
{
    const std::string& location = source.location;
    if (source.kind == SourceConfig::Kind::synthetic)
    {
        return location.empty()
                   ? ""
                   : "the synthetic source opens nothing: remove location, or name another source";
    }
    if (location.empty())
    {
        return "this source needs a location";
    }
    if (location.find("://***@") != std::string::npos || location.find("=***") != std::string::npos)
    {
        return "location has its credentials masked (***): put the real ones back";
    }
    const bool isUrl = location.rfind("rtsp://", 0) == 0 || location.rfind("rtsps://", 0) == 0;
    if (source.isCamera() && !isUrl)
    {
        return "location of an rtsp source must start with rtsp:// or rtsps://";
    }
    const std::string host = source.isCamera() ? ConfigHints::forHostOf(location) : "";
    if (!host.empty())
    {
        return "location " + host;
    }
    if (source.kind == SourceConfig::Kind::file && isInHome(location))
    {
        return "location must be a whole path: ~ is expanded by shells alone";
    }
    return {};
}

std::string ConfigCheck::unknownKey(std::string_view name, const std::vector<std::string_view>& names)
{
    const std::string written = normalized(name);
    std::string_view nearest;
    std::size_t limit = std::max<std::size_t>(2, written.size() / 3) + 1;
    for (const std::string_view candidate : names)
    {
        const std::size_t distance = editDistance(written, normalized(candidate));
        if (distance < limit)
        {
            limit = distance;
            nearest = candidate;
        }
    }
    const std::string message = "unknown key \"" + Log::safe(name, 40) + "\"";
    const std::string here = ConfigHints::nameHere(name);
    if (!here.empty() && (nearest.empty() || normalized(nearest) != written))
    {
        return message + ": " + here;
    }
    const std::string section = sectionOf(name);
    if (!section.empty())
    {
        return message + " here: it belongs to " + section;
    }
    return nearest.empty() ? message : message + "; did you mean \"" + std::string(nearest) + "\"?";
}

std::string ConfigCheck::number(std::int64_t value, int min, int max, int step)
{
    if (value < min || value > max)
    {
        return "must be " + std::to_string(min) + " to " + std::to_string(max) + ", not " +
               std::to_string(value);
    }
    if (value % step != 0)
    {
        return "must be a multiple of " + std::to_string(step) + ", not " + std::to_string(value);
    }
    return {};
}

std::string ConfigCheck::quantity(const std::string& value, bool isSize, std::int64_t max, std::int64_t& out)
{
    std::optional<std::int64_t> number;
    if (isSize)
    {
        number = parseSize(value);
    }
    else if (const auto span = parseTime(value))
    {
        number = span->count();
    }
    if (!number)
    {
        return std::string("must be ") +
               (isSize ? "a size such as \"50GiB\"" : "a time such as \"7d\" or \"12h\"") + ", not \"" +
               Log::safe(value, 40) + "\"";
    }
    if (*number > max)
    {
        return "must be at most " + (isSize ? sizeText(max) : timeText(std::chrono::seconds(max))) +
               ", not \"" + Log::safe(value, 40) + "\"";
    }
    out = *number;
    return {};
}

std::string ConfigCheck::choice(const std::string& value, const std::vector<std::string_view>& choices)
{
    if (std::find(choices.begin(), choices.end(), value) != choices.end())
    {
        return {};
    }
    std::string list;
    for (const std::string_view known : choices)
    {
        list += (list.empty() ? "\"" : ", \"") + std::string(known) + "\"";
    }
    return "must be one of " + list + ", not \"" + Log::safe(value, 40) + "\"";
}

std::string ConfigCheck::text(const std::string& value, TextKind kind)
{
    const bool required = kind == TextKind::userName || kind == TextKind::password || kind == TextKind::path;
    if (required && value.empty())
    {
        return "must not be empty";
    }
    const bool anyText = kind == TextKind::location || kind == TextKind::hook;
    if (!anyText && std::any_of(value.begin(), value.end(), isControl))
    {
        return "must not hold control characters: in double quotes a backslash starts an escape; use single "
               "quotes, or \\\\";
    }
    if (value.find('\0') != std::string::npos)
    {
        return "must not hold a null character";
    }
    if (kind == TextKind::path && isInHome(value))
    {
        return "must be a whole path: ~ is expanded by shells alone";
    }
    const bool address = kind == TextKind::address || (kind == TextKind::anyAddress && !value.empty());
    if (address && !isAddress(value))
    {
        const std::size_t zone = value.find('%');
        return "must be an IPv4 or IPv6 address such as \"127.0.0.1\" or \"::1\", not \"" +
               Log::safe(value, 40) + "\"" +
               (zone == std::string::npos ? ""
                                          : "; it can have no zone (" + Log::safe(value.substr(zone), 20) +
                                                "): listen on \"::\" for link-local addresses");
    }
    if (kind == TextKind::endpoint && !value.empty() && !SocketAddress::parseWithPort(value))
    {
        return "must be an address with a port such as \"127.0.0.1:8080\" or \"[::1]:8080\", or empty, not "
               "\"" +
               Log::safe(value, 40) + "\"";
    }
    if (kind == TextKind::groupRange && !MulticastRange::parse(value))
    {
        return "must be IPv4 multicast addresses such as \"239.255.42.0/24\", not \"" + Log::safe(value, 40) +
               "\"";
    }
    if (kind == TextKind::group && !value.empty() && !MulticastGroup::parse(value))
    {
        return "must be an IPv4 multicast address with an even port such as \"239.1.2.3:5004\", not \"" +
               Log::safe(value, 40) + "\"";
    }
    if (kind == TextKind::freeSpace && !FreeSpace::parse(value))
    {
        return "must be a size such as \"2GiB\", a share such as \"5%\", \"0\" or \"auto\", not \"" +
               Log::safe(value, 40) + "\"";
    }
    if (kind == TextKind::fingerprint && !value.empty() && !CertificateFingerprint::isValid(value))
    {
        return "must be a SHA-256 fingerprint, 64 hexadecimal digits, not \"" + Log::safe(value, 40) + "\"";
    }
    if ((kind == TextKind::quotable || kind == TextKind::userName) &&
        value.find_first_of("\"\\") != std::string::npos)
    {
        return "must not hold quotes or backslashes";
    }
    if (kind == TextKind::passwordHash && !PasswordHash::parse(value))
    {
        return "must be what \"ovrtspd --hash-password NAME\" prints";
    }
    if (kind == TextKind::cameras && !CameraSet::parse(value))
    {
        return "must be \"*\", \"none\" or numbers of cameras such as \"1, 3-5\", not \"" +
               Log::safe(value, 40) + "\"";
    }
    if (kind == TextKind::userName && value.find(':') != std::string::npos)
    {
        return "must not hold a colon";
    }
    return {};
}

}  // namespace refhost
