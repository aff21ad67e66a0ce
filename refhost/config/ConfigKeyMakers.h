#pragma once
// Tested by tests/refhost/config/ConfigSections_test.cpp.

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "refhost/config/ConfigKeys.h"

namespace refhost
{

/// Makes the ConfigKeys of ConfigKeys.cpp: number<&Section::member>("name", "meaning", min, max) and the like, for a
/// member, or a chain of members, of a section's record.
namespace ConfigKeyMakers
{

constexpr std::int64_t mebibyte = 1048576;
constexpr std::int64_t maxSize = mebibyte << 30U;
constexpr std::int64_t hour = 3600;
constexpr std::int64_t maxQuantityTime = 999999 * hour;

/// In the order of SourceConfig::Kind.
constexpr std::array<std::string_view, 6> sourceKinds{"synthetic", "file",     "v4l2",
                                                      "rtsp",      "rtsp-gst", "launch"};

/// In the order of RecordMode.
constexpr std::array<std::string_view, 3> recordModes{"never", "events", "always"};

inline std::string toChoice(const std::string& value)
{
    return value;
}

inline std::string toChoice(const std::optional<Codec>& codec)
{
    return nameOf(codec);
}

inline std::string toChoice(SourceConfig::Kind kind)
{
    return std::string(sourceKinds.at(static_cast<std::size_t>(kind)));
}

inline std::string toChoice(RecordMode mode)
{
    return std::string(nameOf(mode));
}

inline void fromChoice(const std::string& choice, std::string& out)
{
    out = choice;
}

inline void fromChoice(const std::string& choice, std::optional<Codec>& out)
{
    out = codecNamed(choice);
}

inline void fromChoice(const std::string& choice, SourceConfig::Kind& out)
{
    const auto* const found = std::find(sourceKinds.begin(), sourceKinds.end(), choice);
    out = static_cast<SourceConfig::Kind>(found - sourceKinds.begin());
}

inline void fromChoice(const std::string& choice, RecordMode& out)
{
    const auto* const found = std::find(recordModes.begin(), recordModes.end(), choice);
    out = static_cast<RecordMode>(found - recordModes.begin());
}

template <typename... Members>
struct RecordOf;

template <typename Record, typename Value, typename... Rest>
struct RecordOf<Value Record::*, Rest...>
{
    using Type = Record;
};

/// The record that the first of these pointers to members belongs to.
template <auto... Path>
using SectionOf = typename RecordOf<decltype(Path)...>::Type;

template <typename Record, typename Member, typename... Rest>
auto& follow(Record& record, Member member, Rest... rest)
{
    if constexpr (sizeof...(rest) == 0)
    {
        return record.*member;
    }
    else
    {
        return follow(record.*member, rest...);
    }
}

/// Accessors of the value at `Path`, a chain of pointers to members.
template <typename Value, auto... Path>
constexpr ConfigField<SectionOf<Path...>, Value> field()
{
    using Section = SectionOf<Path...>;
    return {[](Section& section) -> Value& { return follow(section, Path...); },
            [](const Section& section) -> const Value& { return follow(section, Path...); }};
}

template <auto... Path>
ConfigKey<SectionOf<Path...>> number(std::string_view name, std::string_view meaning, int min, int max,
                                     int step = 1)
{
    return {name, meaning, NumberSetting<SectionOf<Path...>>{field<int, Path...>(), min, max, step}};
}

template <auto... Path>
ConfigKey<SectionOf<Path...>> size(std::string_view name, std::string_view meaning, std::int64_t bareUnit)
{
    using Setting = QuantitySetting<SectionOf<Path...>>;
    return {name, meaning, Setting{field<std::int64_t, Path...>(), Setting::Kind::size, bareUnit, maxSize}};
}

template <auto... Path>
ConfigKey<SectionOf<Path...>> time(std::string_view name, std::string_view meaning, std::int64_t bareUnit)
{
    using Setting = QuantitySetting<SectionOf<Path...>>;
    return {name, meaning,
            Setting{field<std::int64_t, Path...>(), Setting::Kind::time, bareUnit, maxQuantityTime}};
}

template <auto... Path>
ConfigKey<SectionOf<Path...>> flag(std::string_view name, std::string_view meaning)
{
    return {name, meaning, FlagSetting<SectionOf<Path...>>{field<bool, Path...>()}};
}

template <auto... Path>
ConfigKey<SectionOf<Path...>> text(std::string_view name, std::string_view meaning, TextKind kind)
{
    return {name, meaning, TextSetting<SectionOf<Path...>>{field<std::string, Path...>(), kind}};
}

template <auto... Path>
ConfigKey<SectionOf<Path...>> choice(std::string_view name, std::string_view meaning,
                                     std::vector<std::string_view> choices)
{
    using Section = SectionOf<Path...>;
    return {name, meaning,
            ChoiceSetting<Section>{[](const Section& section) { return toChoice(follow(section, Path...)); },
                                   [](Section& section, const std::string& choice)
                                   { fromChoice(choice, follow(section, Path...)); },
                                   std::move(choices)}};
}

}  // namespace ConfigKeyMakers
}  // namespace refhost
