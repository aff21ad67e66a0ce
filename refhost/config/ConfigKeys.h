#pragma once
// Tested by tests/refhost/config/ConfigReader_test.cpp, tests/refhost/config/ConfigWriter_test.cpp.

#include <cstdint>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "refhost/config/Config.h"

namespace refhost
{

/// Accessors of a value in a section's record.
template <typename Section, typename Value>
struct ConfigField
{
    Value& (*in)(Section&);
    const Value& (*of)(const Section&);
};

/// An integer with its range.
template <typename Section>
struct NumberSetting
{
    ConfigField<Section, int> value;
    int min;
    int max;
    int step = 1;  ///< values are multiples of it
};

/// A size in bytes or a time in seconds: a text with its unit, or a whole number of `bareUnit`.
template <typename Section>
struct QuantitySetting
{
    enum class Kind
    {
        size,
        time
    };

    ConfigField<Section, std::int64_t> value;  ///< bytes or seconds; not negative
    Kind kind;
    std::int64_t bareUnit;  ///< bytes or seconds
    std::int64_t max;       ///< bytes or seconds
};

/// true or false.
template <typename Section>
struct FlagSetting
{
    ConfigField<Section, bool> value;
};

/// One word of a list.
template <typename Section>
struct ChoiceSetting
{
    std::string (*get)(const Section&);
    void (*set)(Section&, const std::string& choice);
    std::vector<std::string_view> choices;
    std::string_view whenTrue{};   ///< the word that `true` stands for; empty: the key takes words alone
    std::string_view whenFalse{};  ///< likewise
};

/// Free text. \see TextKind
enum class TextKind
{
    plain,
    address,       ///< a numeric IPv4 or IPv6 address
    anyAddress,    ///< a numeric IPv4 or IPv6 address, or nothing
    endpoint,      ///< a numeric address with a port as "127.0.0.1:8080" or "[::1]:8080", or nothing
    quotable,      ///< for a quoted string of a header: no quotes, backslashes or control characters
    userName,      ///< as `quotable`, and no colon; must not be empty
    password,      ///< never written; must not be empty
    passwordHash,  ///< never written; as PasswordHash reads it
    cameras,       ///< as CameraSet reads it; not written while empty
    names,         ///< names separated by commas
    groupRange,    ///< IPv4 multicast addresses as "239.255.42.0/24"
    group,         ///< an IPv4 multicast address with an even port as "239.1.2.3:5004", or nothing
    path,          ///< must not be empty
    freeSpace,     ///< as FreeSpace::parse() reads it
    fingerprint,   ///< the SHA-256 of a certificate, or nothing
    location,      ///< may hold credentials, which are masked when it is written
    hook           ///< a command or URL, which may hold a secret anywhere: what it is is not written
};

template <typename Section>
struct TextSetting
{
    ConfigField<Section, std::string> value;
    TextKind kind;
};

/// What a change of a key does when the running server reads its configuration again.
enum class ReloadEffect
{
    restart,    ///< nothing before the server is restarted
    identity,   ///< names the section: what had the former name ends, and what has the new one starts
    atOnce,     ///< applies at once
    newcomers,  ///< applies to what clients open from then on: connections, sessions, requests
    source,     ///< the stream's source starts again; its viewers stay
    viewers     ///< the stream's source starts again, and its sessions are ended
};

/// As the manual says it.
constexpr std::string_view textOf(ReloadEffect effect)
{
    switch (effect)
    {
        case ReloadEffect::identity:
            return "ends the former, starts the new";
        case ReloadEffect::atOnce:
            return "at once";
        case ReloadEffect::newcomers:
            return "at once, for newcomers";
        case ReloadEffect::source:
            return "restarts the source";
        case ReloadEffect::viewers:
            return "restarts the source, ends viewers";
        case ReloadEffect::restart:
            break;
    }
    return "needs a restart";
}

/// One key of one section of the configuration file: everything that the reader, the checks, the writer, the
/// comparison and the manual need.
template <typename Section>
struct ConfigKey
{
    using Setting = std::variant<NumberSetting<Section>, QuantitySetting<Section>, FlagSetting<Section>,
                                 ChoiceSetting<Section>, TextSetting<Section>>;

    std::string_view name;
    std::string_view meaning;  ///< with the unit, without range and default, which the settings hold
    Setting setting;
    std::string_view former{};  ///< former name, still read, with a warning; empty: none
    ReloadEffect effect = ReloadEffect::restart;

    /// The same key, renamed from `oldName`.
    ConfigKey formerly(std::string_view oldName) const
    {
        ConfigKey renamed = *this;
        renamed.former = oldName;
        return renamed;
    }

    /// The same key with another effect of a change.
    ConfigKey on(ReloadEffect newEffect) const
    {
        ConfigKey changed = *this;
        changed.effect = newEffect;
        return changed;
    }

    /// The same key, of words, which also takes true and false.
    ConfigKey orFlag(std::string_view whenTrue, std::string_view whenFalse) const
    {
        ConfigKey changed = *this;
        auto& words = std::get<ChoiceSetting<Section>>(changed.setting);
        words.whenTrue = whenTrue;
        words.whenFalse = whenFalse;
        return changed;
    }

    /// Whether `written` is a name of the key.
    bool answersTo(std::string_view written) const
    {
        return written == name || (!former.empty() && written == former);
    }
};

/// The keys of one section, in the order of the manual. ConfigSections.h lists the sections.
template <typename Section>
const std::vector<ConfigKey<Section>>& configKeys();

template <>
const std::vector<ConfigKey<ServerConfig>>& configKeys();
template <>
const std::vector<ConfigKey<LimitsConfig>>& configKeys();
template <>
const std::vector<ConfigKey<AuthConfig>>& configKeys();
template <>
const std::vector<ConfigKey<TlsConfig>>& configKeys();
template <>
const std::vector<ConfigKey<TunnelConfig>>& configKeys();
template <>
const std::vector<ConfigKey<HttpConfig>>& configKeys();
template <>
const std::vector<ConfigKey<SrtpConfig>>& configKeys();
template <>
const std::vector<ConfigKey<TalkBackConfig>>& configKeys();
template <>
const std::vector<ConfigKey<HooksConfig>>& configKeys();
template <>
const std::vector<ConfigKey<MulticastConfig>>& configKeys();
template <>
const std::vector<ConfigKey<RecordingConfig>>& configKeys();
template <>
const std::vector<ConfigKey<GroupConfig>>& configKeys();
template <>
const std::vector<ConfigKey<UserConfig>>& configKeys();
template <>
const std::vector<ConfigKey<CameraConfig>>& configKeys();
template <>
const std::vector<ConfigKey<StreamConfig>>& configKeys();

}  // namespace refhost
