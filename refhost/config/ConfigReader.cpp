#include "refhost/config/ConfigReader.h"

#include <toml++/toml.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <iterator>
#include <tuple>
#include <utility>

#include "refhost/config/ConfigCheck.h"
#include "refhost/config/ConfigHints.h"
#include "refhost/config/ConfigKeys.h"
#include "refhost/config/ConfigRules.h"
#include "refhost/config/ConfigSections.h"

namespace refhost
{
namespace
{

std::string describe(const toml::node& node)
{
    switch (node.type())
    {
        case toml::node_type::string:
            return "a string";
        case toml::node_type::integer:
            return "a whole number";
        case toml::node_type::floating_point:
            return "a number with a fraction";
        case toml::node_type::boolean:
            return "true or false";
        case toml::node_type::array:
            return "a list";
        case toml::node_type::table:
            return "a section";
        default:
            return "a date or time";
    }
}

// Traverses one parsed file and collects its problems.
class Walk
{
public:
    explicit Walk(std::string directory) : rules_(std::move(directory), problems_) {}

    void readServer(const toml::table& table, ServerConfig& out)
    {
        readSection(table, out);
        if (!table.contains("camera"))
        {
            out.cameras = ServerConfig::embeddedCameras();
        }
        rules_.finishFile(out);
    }

    std::vector<ConfigProblem> takeProblems()
    {
        return inOrder(std::move(problems_));
    }

    std::vector<ConfigProblem> takeWarnings()
    {
        return inOrder(std::move(warnings_));
    }

private:
    static std::vector<ConfigProblem> inOrder(std::vector<ConfigProblem> found)
    {
        std::stable_sort(found.begin(), found.end(),
                         [](const ConfigProblem& a, const ConfigProblem& b)
                         { return std::tie(a.line, a.column) < std::tie(b.line, b.column); });
        return found;
    }

    void report(const toml::source_position& where, std::string message)
    {
        problems_.push_back(ConfigRules::at(where, std::move(message)));
    }

    void report(const toml::node& node, std::string message)
    {
        report(node.source().begin, std::move(message));
    }

    template <typename Section>
    void readSection(const toml::table& table, Section& out)
    {
        std::vector<std::string_view> names;
        eachSectionIn<Section>([&](const auto& within) { names.push_back(within.name); });
        const std::size_t sections = names.size();
        const auto& keys = configKeys<Section>();
        std::transform(keys.begin(), keys.end(), std::back_inserter(names),
                       [](const ConfigKey<Section>& key) { return key.name; });
        for (const auto& [written, node] : table)
        {
            const std::string_view name = written.str();
            const auto key = std::find_if(keys.begin(), keys.end(),
                                          [name](const ConfigKey<Section>& k) { return k.answersTo(name); });
            if (key != keys.end())
            {
                checkName(table, written, *key);
                readKey(node, name, *key, out);
                continue;
            }
            const auto endOfSections = names.begin() + static_cast<std::ptrdiff_t>(sections);
            if (std::find(names.begin(), endOfSections, name) == endOfSections)
            {
                report(written.source().begin, ConfigCheck::unknownKey(name, names));
            }
        }
        eachSectionIn<Section>([&](const auto& within) { readWithin(table, within, out); });
    }

    // A key may be written under its former name, but not under both.
    template <typename Section>
    void checkName(const toml::table& table, const toml::key& written, const ConfigKey<Section>& key)
    {
        if (written.str() == key.name)
        {
            return;
        }
        const std::string names =
            "\"" + std::string(key.former) + "\" is the former name of \"" + std::string(key.name) + "\"";
        if (table.contains(key.name))
        {
            report(written.source().begin, names + ": remove one of the two");
            return;
        }
        warnings_.push_back(ConfigRules::at(written.source().begin, names + ": rename it"));
    }

    template <typename Section, typename Parent>
    void readWithin(const toml::table& table, const SingleSection<Section, Parent>& single, Parent& out)
    {
        const toml::node* const node = table.get(single.name);
        if (node == nullptr)
        {
            return;
        }
        if (const toml::table* section = node->as_table())
        {
            readSection(*section, out.*single.values);
            rules_.finish(*section, out.*single.values);
            return;
        }
        report(*node, std::string(single.name) + " is a section: write " + single.heading());
    }

    template <typename Section, typename Parent>
    void readWithin(const toml::table& table, const SectionList<Section, Parent>& sections, Parent& out)
    {
        const toml::node* const node = table.get(sections.name);
        if (node == nullptr)
        {
            return;
        }
        const std::string misplaced = std::string(sections.name) + " is a list of sections: write " +
                                      sections.heading() + " before each";
        const toml::array* const list = node->as_array();
        if (list == nullptr || list->empty())
        {
            report(*node, misplaced);
            return;
        }
        for (const toml::node& element : *list)
        {
            const toml::table* const section = element.as_table();
            if (section == nullptr)
            {
                report(element, misplaced);
                continue;
            }
            Section values;
            readSection(*section, values);
            rules_.finish(*section, values, out.*sections.values);
            (out.*sections.values).push_back(std::move(values));
        }
    }

    template <typename Section>
    void readKey(const toml::node& node, std::string_view name, const ConfigKey<Section>& key, Section& out)
    {
        const std::string problem =
            std::visit([&](const auto& setting) { return assign(node, setting, out); }, key.setting);
        if (!problem.empty())
        {
            report(node, std::string(name) + " " + problem);
        }
    }

    template <typename Section>
    static std::string assign(const toml::node& node, const NumberSetting<Section>& setting, Section& out)
    {
        const auto value = node.value_exact<std::int64_t>();
        return value ? ConfigCheck::assign(setting, *value, out)
                     : "must be a whole number, not " + describe(node);
    }

    template <typename Section>
    static std::string assign(const toml::node& node, const QuantitySetting<Section>& setting, Section& out)
    {
        if (const auto bare = node.value_exact<std::int64_t>())
        {
            return ConfigCheck::assign(setting, *bare, out);
        }
        const auto text = node.value_exact<std::string>();
        return text ? ConfigCheck::assign(setting, *text, out)
                    : "must be a whole number or a string, not " + describe(node);
    }

    template <typename Section>
    static std::string assign(const toml::node& node, const FlagSetting<Section>& setting, Section& out)
    {
        const auto value = node.value_exact<bool>();
        if (!value)
        {
            return "must be true or false, not " + describe(node);
        }
        setting.value.in(out) = *value;
        return {};
    }

    template <typename Section, template <typename> typename Setting>
    static std::string assign(const toml::node& node, const Setting<Section>& setting, Section& out)
    {
        const auto value = node.value_exact<std::string>();
        return value ? ConfigCheck::assign(setting, *value, out) : "must be a string, not " + describe(node);
    }

    std::vector<ConfigProblem> problems_;
    std::vector<ConfigProblem> warnings_;
    ConfigRules rules_;
};

}  // namespace

std::string ConfigProblem::toString(const std::string& file) const
{
    if (line == 0)
    {
        return file.empty() ? message : file + ": " + message;
    }
    return file + ":" + std::to_string(line) + ":" + std::to_string(column) + ": " + message;
}

ConfigResult ConfigReader::read(std::string_view text, const std::string& directory)
{
    try
    {
        const toml::table table = toml::parse(text);
        ServerConfig config;
        Walk walk(directory);
        walk.readServer(table, config);
        std::vector<ConfigProblem> problems = walk.takeProblems();
        if (!problems.empty())
        {
            return {std::nullopt, std::move(problems), {}};
        }
        return {std::move(config), {}, walk.takeWarnings()};
    }
    catch (const toml::parse_error& error)
    {
        const toml::source_position& where = error.source().begin;
        const int line = static_cast<int>(where.line);
        const std::string hint = ConfigHints::forSyntax(text, line);
        return {std::nullopt,
                {{line, static_cast<int>(where.column),
                  "not valid TOML: " + (hint.empty() ? "" : hint + " (") + std::string(error.description()) +
                      (hint.empty() ? "" : ")")}},
                {}};
    }
}

ConfigResult ConfigReader::readFile(const std::string& path)
{
    constexpr std::streamsize maxSize = 1048576;
    const auto failed = [](const std::string& message) {
        return ConfigResult{std::nullopt, {{0, 0, message}}, {}};
    };
    if (path.empty())
    {
        return failed("the name of the configuration file is empty");
    }
    errno = 0;
    std::ifstream file(path, std::ios::binary);
    if (!file)
    {
        return failed(std::string("cannot be opened: ") + std::strerror(errno));
    }
    std::string text(static_cast<std::size_t>(maxSize) + 1, '\0');
    errno = 0;
    file.read(text.data(), maxSize + 1);
    if (file.bad() || (file.gcount() == 0 && errno != 0))
    {
        return failed(std::string("cannot be read: ") + std::strerror(errno));
    }
    if (file.gcount() > maxSize)
    {
        return failed("is larger than 1 MiB, so it is no configuration");
    }
    text.resize(static_cast<std::size_t>(file.gcount()));
    const std::size_t slash = path.rfind('/');
    return read(text, slash == std::string::npos ? "" : path.substr(0, slash));
}

std::string ConfigReader::set(ServerConfig& config, std::string_view key, const std::string& text)
{
    return ConfigCheck::setServerKey(config, key, text);
}

}  // namespace refhost
