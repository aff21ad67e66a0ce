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
    /// \param file  named in problems; empty: the configuration file itself
    explicit Walk(std::string directory, std::string file = {})
        : rules_(std::move(directory), std::move(file), problems_, warnings_)
    {
    }

    void readServer(const toml::table& table, ServerConfig& out)
    {
        readSection(table, out);
        rules_.finish(table, out);
        if (!table.contains("camera"))
        {
            out.cameras = ServerConfig::embeddedCameras();
        }
    }

    /// Reads a file that holds nothing but users and groups.
    void readUsers(const toml::table& table, ServerConfig& out)
    {
        rules_.usersOf(out.tls);
        const std::size_t groups = out.groups.size();
        const std::size_t users = out.users.size();
        for (const auto& [written, node] : table)
        {
            if (written.str() != "user" && written.str() != "group")
            {
                report(written.source().begin, "a users-file holds nothing but [[user]] and [[group]]");
            }
        }
        eachSectionIn<ServerConfig>(
            [&](const auto& section)
            {
                if (section.name == "user" || section.name == "group")
                {
                    readWithin(table, section, out);
                }
            });
        std::for_each(out.groups.begin() + static_cast<std::ptrdiff_t>(groups), out.groups.end(),
                      [](GroupConfig& group) { group.inUsersFile = true; });
        std::for_each(out.users.begin() + static_cast<std::ptrdiff_t>(users), out.users.end(),
                      [](UserConfig& user) { user.inUsersFile = true; });
    }

    /// Checks users against what is known once all files are read.
    void checkUsers(const ServerConfig& config)
    {
        rules_.finishUsers(config);
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
        problems_.push_back(rules_.at(where, std::move(message)));
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
        warnings_.push_back(rules_.at(written.source().begin, names + ": rename it"));
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

    template <typename Section>
    static std::string assign(const toml::node& node, const ChoiceSetting<Section>& setting, Section& out)
    {
        if (const auto flag = node.value_exact<bool>(); flag && !setting.whenTrue.empty())
        {
            return ConfigCheck::assign(setting, std::string(*flag ? setting.whenTrue : setting.whenFalse),
                                       out);
        }
        const auto value = node.value_exact<std::string>();
        return value ? ConfigCheck::assign(setting, *value, out) : "must be a string, not " + describe(node);
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

// Without the parser's words where they could repeat a secret.
ConfigProblem problemOf(const toml::parse_error& error, std::string_view text, const std::string& file = {})
{
    const toml::source_position& where = error.source().begin;
    const std::string hint = ConfigHints::forSyntax(text, static_cast<int>(where.line));
    for (toml::source_index line = 1; line < where.line; ++line)
    {
        text.remove_prefix(std::min(text.find('\n'), text.size() - 1) + 1);
    }
    text = text.substr(0, text.find('\n'));
    const bool secret =
        text.find("password") != std::string_view::npos || text.find("location") != std::string_view::npos;
    const std::string words(secret ? "" : error.description());
    std::string message = "not valid TOML";
    message += hint.empty() && words.empty() ? "" : ": " + (hint.empty() ? words : hint);
    message += hint.empty() || words.empty() ? "" : " (" + words + ")";
    return {static_cast<int>(where.line), static_cast<int>(where.column), std::move(message), file};
}

std::string directoryOf(const std::string& path)
{
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? "" : path.substr(0, slash);
}

// \returns the problem, or an empty text
std::string readText(const std::string& path, std::string& text)
{
    constexpr std::streamsize maxSize = 1048576;
    errno = 0;
    std::ifstream file(path, std::ios::binary);
    if (!file)
    {
        return std::string("cannot be opened: ") + std::strerror(errno);
    }
    text.assign(static_cast<std::size_t>(maxSize) + 1, '\0');
    errno = 0;
    file.read(text.data(), maxSize + 1);
    if (file.bad() || (file.gcount() == 0 && errno != 0))
    {
        return std::string("cannot be read: ") + std::strerror(errno);
    }
    if (file.gcount() > maxSize)
    {
        return "is larger than 1 MiB, so it is no configuration";
    }
    text.resize(static_cast<std::size_t>(file.gcount()));
    return {};
}

// Adds the users and groups of the users-file.
std::vector<ConfigProblem> readUsersFile(ServerConfig& config)
{
    const std::string& path = config.usersFile;
    std::string text;
    const std::string problem = readText(path, text);
    if (!problem.empty())
    {
        return {{0, 0, problem, path}};
    }
    try
    {
        const toml::table table = toml::parse(text);
        Walk walk(directoryOf(path), path);
        walk.readUsers(table, config);
        walk.checkUsers(config);
        return walk.takeProblems();
    }
    catch (const toml::parse_error& error)
    {
        return {problemOf(error, text, path)};
    }
}

// \param users  read the users-file, too
ConfigResult readAll(std::string_view text, const std::string& directory, bool users)
{
    try
    {
        const toml::table table = toml::parse(text);
        ServerConfig config;
        Walk walk(directory);
        walk.readServer(table, config);
        std::vector<ConfigProblem> more;
        if (users && !config.usersFile.empty())
        {
            more = readUsersFile(config);
        }
        if (users || config.usersFile.empty())
        {
            walk.checkUsers(config);
        }
        std::vector<ConfigProblem> problems = walk.takeProblems();
        problems.insert(problems.end(), more.begin(), more.end());
        if (!problems.empty())
        {
            return {std::nullopt, std::move(problems), {}};
        }
        return {std::move(config), {}, walk.takeWarnings()};
    }
    catch (const toml::parse_error& error)
    {
        return {std::nullopt, {problemOf(error, text)}, {}};
    }
}

}  // namespace

std::string ConfigProblem::toString(const std::string& configFile) const
{
    const std::string& name = file.empty() ? configFile : file;
    if (line == 0)
    {
        return name.empty() ? message : name + ": " + message;
    }
    return name + ":" + std::to_string(line) + ":" + std::to_string(column) + ": " + message;
}

ConfigResult ConfigReader::read(std::string_view text, const std::string& directory)
{
    return readAll(text, directory, false);
}

ConfigResult ConfigReader::readFile(const std::string& path)
{
    std::string text;
    const std::string problem =
        path.empty() ? "the name of the configuration file is empty" : readText(path, text);
    return problem.empty() ? readAll(text, directoryOf(path), true)
                           : ConfigResult{std::nullopt, {{0, 0, problem}}, {}};
}

std::string ConfigReader::set(ServerConfig& config, std::string_view key, const std::string& text)
{
    return ConfigCheck::setServerKey(config, key, text);
}

}  // namespace refhost
