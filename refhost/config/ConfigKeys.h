#pragma once
// Tested by tests/refhost/config/ConfigReader_test.cpp, tests/refhost/config/ConfigWriter_test.cpp.

#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "refhost/config/Config.h"

namespace refhost
{

/// A whole number with its range.
template <typename Section>
struct NumberSetting
{
    int& (*value)(Section&);
    int min;
    int max;
    int step = 1;  ///< the number is a multiple of it
};

/// true or false.
template <typename Section>
struct FlagSetting
{
    bool& (*value)(Section&);
};

/// One word of a list.
template <typename Section>
struct ChoiceSetting
{
    std::string (*get)(const Section&);
    void (*set)(Section&, const std::string& choice);
    std::vector<std::string_view> choices;
};

/// Free text. \see TextKind
enum class TextKind
{
    plain,
    address,     ///< a numeric IPv4 or IPv6 address
    quotable,    ///< stands in a quoted string of a header: no quotes, backslashes or control characters
    userName,    ///< as `quotable`, and no colon; must be there
    password,    ///< never written; must be there
    groupRange,  ///< IPv4 multicast addresses as "239.255.42.0/24"
    group,       ///< an IPv4 multicast address with an even port as "239.1.2.3:5004", or nothing
    path,        ///< must be there
    location     ///< may hold credentials, which are masked when it is written
};

template <typename Section>
struct TextSetting
{
    std::string& (*value)(Section&);
    TextKind kind;
};

/// One key of one section of the configuration file: everything that the reader, the writer and the manual
/// know of it.
template <typename Section>
struct ConfigKey
{
    using Setting = std::variant<NumberSetting<Section>, FlagSetting<Section>, ChoiceSetting<Section>,
                                 TextSetting<Section>>;

    std::string_view name;
    std::string_view meaning;  ///< with the unit, without range and default, which the settings hold
    Setting setting;
};

/// The keys that stand at the top of the file.
const std::vector<ConfigKey<ServerConfig>>& serverKeys();
/// The keys of [limits].
const std::vector<ConfigKey<LimitsConfig>>& limitsKeys();
/// The keys of [talk-back].
const std::vector<ConfigKey<TalkBackConfig>>& talkBackKeys();
/// The keys of [multicast].
const std::vector<ConfigKey<MulticastConfig>>& multicastKeys();
/// The keys of [recording].
const std::vector<ConfigKey<RecordingConfig>>& recordingKeys();
/// The keys of each [[user]].
const std::vector<ConfigKey<UserConfig>>& userKeys();
/// The keys of each [[camera]].
const std::vector<ConfigKey<CameraConfig>>& cameraKeys();
/// The keys of each [[camera.stream]].
const std::vector<ConfigKey<StreamConfig>>& streamKeys();

}  // namespace refhost
