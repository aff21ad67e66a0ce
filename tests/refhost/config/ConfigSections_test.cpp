#include "refhost/config/ConfigSections.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "refhost/config/ConfigKeys.h"
#include "refhost/config/ConfigReader.h"
#include "refhost/config/ConfigWriter.h"

namespace refhost
{
namespace
{

// A permitted value that differs from the present one.

template <typename Section>
void change(const NumberSetting<Section>& setting, Section& section)
{
    int& value = setting.value.in(section);
    value = value == setting.min ? value + setting.step : setting.min;
}

template <typename Section>
void change(const QuantitySetting<Section>& setting, Section& section)
{
    setting.value.in(section) += 1;
}

template <typename Section>
void change(const FlagSetting<Section>& setting, Section& section)
{
    setting.value.in(section) = !setting.value.of(section);
}

template <typename Section>
void change(const ChoiceSetting<Section>& setting, Section& section)
{
    const auto& all = setting.choices;
    const auto now = std::find(all.begin(), all.end(), setting.get(section));
    ASSERT_NE(now, all.end());
    setting.set(section, std::string(now + 1 == all.end() ? all.front() : *(now + 1)));
}

template <typename Section>
void change(const TextSetting<Section>& setting, Section& section)
{
    std::string& value = setting.value.in(section);
    switch (setting.kind)
    {
        case TextKind::address:
        case TextKind::anyAddress:
            value = "192.0.2.7";
            break;
        case TextKind::endpoint:
            value = "192.0.2.7:80";
            break;
        case TextKind::groupRange:
            value = "239.7.0.0/16";
            break;
        case TextKind::group:
            value = "239.7.7.7:7000";
            break;
        case TextKind::cameras:
            value = "1, 3-5";
            break;
        case TextKind::freeSpace:
            value = "7%";
            break;
        case TextKind::location:
            value = "rtsp://192.0.2.7/";
            break;
        case TextKind::fingerprint:
            value = std::string(64, 'A');
            break;
        default:
            value = "/else";
    }
}

// Secrets are not in the dump and cannot be read back from it.
template <typename Section>
bool isDumped(const ConfigKey<Section>& key)
{
    const auto* const text = std::get_if<TextSetting<Section>>(&key.setting);
    return text == nullptr || (text->kind != TextKind::password && text->kind != TextKind::passwordHash &&
                               text->kind != TextKind::hook);
}

ServerConfig plain()
{
    ServerConfig config;
    StreamConfig stream;
    stream.source = {SourceConfig::Kind::v4l2, "rtsp://192.0.2.1/"};  // fits the kind that comes next, too
    config.cameras = {{1, "", {stream}}};
    config.groups = {{"guards"}};
    return config;
}

template <typename Section>
Section& only(Section& section)
{
    return section;
}

template <typename Section>
Section& only(std::vector<Section>& list)
{
    if (list.empty())
    {
        list.emplace_back();
    }
    return list.front();
}

// Calls `check` with each key of the file and an accessor of the record that the key fills.
template <typename Section, typename Find, typename Check>
void eachKey(const Find& find, const Check& check)
{
    for (const ConfigKey<Section>& key : configKeys<Section>())
    {
        SCOPED_TRACE(std::string(key.name));
        check(key, find);
    }
    eachSectionIn<Section>(
        [&](const auto& within)
        {
            SCOPED_TRACE(within.heading());
            eachKey<ValuesOf<decltype(within)>>(
                [&](ServerConfig & config) -> auto& { return only(find(config).*within.values); }, check);
        });
}

template <typename Check>
void eachKeyOfTheFile(const Check& check)
{
    eachKey<ServerConfig>([](ServerConfig& config) -> ServerConfig& { return config; }, check);
}

TEST(ConfigSections, ConfigurationsThatDifferInOneKeyDiffer)
{
    int keys = 0;
    eachKeyOfTheFile(
        [&](const auto& key, const auto& find)
        {
            ServerConfig config = plain();
            find(config);
            const ServerConfig before = config;
            EXPECT_TRUE(config == before);
            std::visit([&](const auto& setting) { change(setting, find(config)); }, key.setting);
            EXPECT_FALSE(config == before);
            ++keys;
        });
    EXPECT_GE(keys, 59);
}

TEST(ConfigSections, EveryKeyIsDumpedAndReadBack)
{
    eachKeyOfTheFile(
        [&](const auto& key, const auto& find)
        {
            ServerConfig config = plain();
            std::visit([&](const auto& setting) { change(setting, find(config)); }, key.setting);
            if (!config.users.empty() || !isDumped(key))
            {
                return;
            }
            const ConfigResult result = ConfigReader::read(ConfigWriter::write(config));
            for (const ConfigProblem& problem : result.problems)
            {
                ADD_FAILURE() << problem.toString("dump");
            }
            ASSERT_TRUE(result.config.has_value());
            EXPECT_TRUE(*result.config == config);
        });
}

TEST(ConfigSections, NoNameIsUsedTwiceInASection)
{
    eachKeyOfTheFile(
        [](const auto& key, const auto& find)
        {
            ServerConfig config;
            using Section = std::decay_t<decltype(find(config))>;
            const auto& keys = configKeys<Section>();
            const auto answering = [&](std::string_view name)
            {
                return std::count_if(keys.begin(), keys.end(),
                                     [&](const ConfigKey<Section>& other) { return other.answersTo(name); });
            };
            EXPECT_EQ(answering(key.name), 1);
            EXPECT_EQ(key.former.empty() ? 1 : answering(key.former), 1) << key.former;
        });
}

}  // namespace
}  // namespace refhost
