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

/// The rules for values of the configuration, from a file or the command line. Every check returns the problem
/// in words that follow the key's name ("must be 1 to 64, not 99"), or an empty text for a valid value.
///
/// Threads: any.
class ConfigCheck
{
public:
    template <typename Section>
    static std::string assign(const NumberSetting<Section>& setting, std::int64_t value, Section& out)
    {
        std::string problem = number(value, setting.min, setting.max, setting.step);
        if (problem.empty())
        {
            setting.value.in(out) = static_cast<int>(value);
        }
        return problem;
    }

    /// A number without a unit.
    template <typename Section>
    static std::string assign(const QuantitySetting<Section>& setting, std::int64_t value, Section& out)
    {
        const std::int64_t maxBare = setting.max / setting.bareUnit;
        if (value < 0 || value > maxBare)
        {
            return "must be 0 to " + std::to_string(maxBare) + ", not " + std::to_string(value);
        }
        setting.value.in(out) = value * setting.bareUnit;
        return {};
    }

    template <typename Section>
    static std::string assign(const QuantitySetting<Section>& setting, const std::string& value, Section& out)
    {
        const bool isSize = setting.kind == QuantitySetting<Section>::Kind::size;
        std::int64_t number = 0;
        std::string problem = quantity(value, isSize, setting.max, number);
        if (problem.empty())
        {
            setting.value.in(out) = number;
        }
        return problem;
    }

    template <typename Section>
    static std::string assign(const ChoiceSetting<Section>& setting, const std::string& value, Section& out)
    {
        std::string problem = choice(value, setting.choices);
        if (problem.empty())
        {
            setting.set(out, value);
        }
        return problem;
    }

    template <typename Section>
    static std::string assign(const TextSetting<Section>& setting, const std::string& value, Section& out)
    {
        std::string problem = text(value, setting.kind);
        if (problem.empty())
        {
            setting.value.in(out) = value;
        }
        return problem;
    }

    /// Sets a top-level key from text.
    static std::string setServerKey(ServerConfig& config, std::string_view key, const std::string& text);

    /// Checks that a codec supports a width or height in pixels.
    static std::string side(const std::optional<Codec>& codec, int pixels);

    /// Checks that a source's kind and location fit together.
    static std::string source(const SourceConfig& source);

    /// The complete message about a key that is not in `names`, with a hint at a similar one.
    static std::string unknownKey(std::string_view name, const std::vector<std::string_view>& names);

private:
    static std::string number(std::int64_t value, int min, int max, int step);
    static std::string quantity(const std::string& value, bool isSize, std::int64_t max, std::int64_t& out);
    static std::string choice(const std::string& value, const std::vector<std::string_view>& choices);
    static std::string text(const std::string& value, TextKind kind);
};

}  // namespace refhost
