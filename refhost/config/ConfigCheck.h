#pragma once
// Tested by tests/refhost/config/ConfigReader_test.cpp.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "refhost/config/ConfigKeys.h"

namespace refhost
{

/// The rules that values of the configuration must follow, wherever they come from. Every check says what is
/// wrong in words that follow the key's name ("must be 1 to 64, not 99"), or nothing when all is well.
///
/// Threads: any.
class ConfigCheck
{
public:
    template <typename Section>
    static std::string assign(const NumberSetting<Section>& setting, std::int64_t value, Section& out)
    {
        const std::string problem = number(value, setting.min, setting.max, setting.step);
        if (problem.empty())
        {
            setting.value.in(out) = static_cast<int>(value);
        }
        return problem;
    }

    template <typename Section>
    static std::string assign(const ChoiceSetting<Section>& setting, const std::string& value, Section& out)
    {
        const std::string problem = choice(value, setting.choices);
        if (problem.empty())
        {
            setting.set(out, value);
        }
        return problem;
    }

    template <typename Section>
    static std::string assign(const TextSetting<Section>& setting, const std::string& value, Section& out)
    {
        const std::string problem = text(value, setting.kind);
        if (problem.empty())
        {
            setting.value.in(out) = value;
        }
        return problem;
    }

    /// Sets a key of the top of the file from text.
    static std::string setServerKey(ServerConfig& config, std::string_view key, const std::string& text);

    /// Whether a width or height in pixels can be sent in a codec.
    static std::string side(const std::optional<Codec>& codec, int pixels);

    /// Whether a source's kind and location fit together.
    static std::string source(const SourceConfig& source);

    /// The whole message about a key that `names` does not hold, with a hint where one can be given.
    static std::string unknownKey(std::string_view name, const std::vector<std::string_view>& names);

private:
    static std::string number(std::int64_t value, int min, int max, int step);
    static std::string choice(const std::string& value, const std::vector<std::string_view>& choices);
    static std::string text(const std::string& value, TextKind kind);
};

}  // namespace refhost
