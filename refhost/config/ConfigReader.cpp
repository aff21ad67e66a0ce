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

#include "refhost/base/Log.h"
#include "refhost/config/CameraSet.h"
#include "refhost/config/ConfigCheck.h"
#include "refhost/config/ConfigKeys.h"
#include "refhost/config/ConfigSections.h"
#include "refhost/rtp/multicast/MulticastGroup.h"

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
    explicit Walk(std::string directory) : directory_(std::move(directory)) {}

    void readServer(const toml::table& table, ServerConfig& out)
    {
        readSection(table, out);
        if (!table.contains("camera"))
        {
            out.cameras = ServerConfig::embeddedCameras();
        }
        checkGroupUses(out.groups);
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

    static ConfigProblem at(const toml::source_position& where, std::string message)
    {
        return {static_cast<int>(where.line), static_cast<int>(where.column), std::move(message)};
    }

    void report(const toml::source_position& where, std::string message)
    {
        problems_.push_back(at(where, std::move(message)));
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
        warnings_.push_back(at(written.source().begin, names + ": rename it"));
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
            finish(*section, out.*single.values);
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
            finish(*section, values, out.*sections.values);
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

    // The node of a value, or its section when the value is missing.
    static const toml::node& place(const toml::table& table, std::string_view key)
    {
        const toml::node* const node = table.get(key);
        return node != nullptr ? *node : table;
    }

    // A relative path is relative to the file's directory.
    void resolve(std::string& path) const
    {
        if (!directory_.empty() && path.rfind('/', 0) != 0)
        {
            path.insert(0, directory_ + "/");
        }
    }

    // Checks that involve several keys of a section.

    template <typename Section>
    void finish(const toml::table&, Section&)
    {
    }

    void finish(const toml::table& table, TalkBackConfig& talkBack)
    {
        if (talkBack.output != "wav")
        {
            return;
        }
        if (talkBack.device.empty())
        {
            report(place(table, "output"), "the output \"wav\" needs a path as device");
            return;
        }
        resolve(talkBack.device);
    }

    void finish(const toml::table& table, TlsConfig& tls)
    {
        if (tls.selfSigned && !tls.certificate.empty())
        {
            report(place(table, "self-signed"),
                   "self-signed = true makes a certificate: remove one of the two");
        }
        for (std::string* const path : {&tls.certificate, &tls.key, &tls.clientCa})
        {
            if (!path->empty())
            {
                resolve(*path);
            }
        }
        if (tls.directory != TlsConfig().directory)
        {
            resolve(tls.directory);
        }
    }

    void finish(const toml::table&, RecordingConfig& recording)
    {
        if (recording.directory != RecordingConfig().directory)
        {
            resolve(recording.directory);
        }
    }

    void finish(const toml::table& table, GroupConfig& group, const std::vector<GroupConfig>& others)
    {
        if (!table.contains("name"))
        {
            report(table, "this [[group]] has no name");
        }
        const std::string& name = group.name;
        if (!name.empty() &&
            (name.find(',') != std::string::npos || name.front() == ' ' || name.back() == ' '))
        {
            report(place(table, "name"),
                   "name of a group must not hold a comma, nor start or end with a blank");
        }
        const bool twice = std::any_of(others.begin(), others.end(),
                                       [&](const GroupConfig& other) { return other.name == name; });
        if (twice && !name.empty())
        {
            report(place(table, "name"), "group \"" + name + "\" is defined twice");
        }
    }

    void finish(const toml::table& table, UserConfig& user, const std::vector<UserConfig>& others)
    {
        if (!table.contains("name"))
        {
            report(table, "this [[user]] has no name");
        }
        if (user.isAnonymous())
        {
            checkAnonymous(table, user);
        }
        else if (!table.contains("password"))
        {
            report(table, "this [[user]] has no password");
        }
        for (const std::string& group : user.groupNames())
        {
            const toml::source_position& where = place(table, "groups").source().begin;
            groupUses_.push_back(at(where, group));
        }
        const bool twice = std::any_of(others.begin(), others.end(),
                                       [&](const UserConfig& other) { return other.name == user.name; });
        if (twice && !user.name.empty())
        {
            report(place(table, "name"), "user \"" + user.name + "\" is defined twice");
        }
    }

    // Whoever does not log in must never be able to do everything.
    void checkAnonymous(const toml::table& table, const UserConfig& user)
    {
        if (table.contains("password"))
        {
            return;  // it is empty, which is reported
        }
        if (user.grants.empty() && user.groupNames().empty())
        {
            report(place(table, "name"),
                   "the user \"anonymous\" needs live, playback or talk, for it is whoever does not log in");
        }
        const auto admin = CameraSet::parse(user.grants.admin);
        if (admin && !admin->empty())
        {
            report(place(table, "admin"), "the user \"anonymous\" cannot have admin");
        }
    }

    void checkGroupUses(const std::vector<GroupConfig>& groups)
    {
        for (const ConfigProblem& use : groupUses_)
        {
            const bool known =
                std::any_of(groups.begin(), groups.end(),
                            [&](const GroupConfig& group) { return group.name == use.message; });
            if (!known)
            {
                problems_.push_back({use.line, use.column,
                                     "there is no [[group]] named \"" + Log::safe(use.message, 40) + "\""});
            }
        }
    }

    void finish(const toml::table& table, CameraConfig& camera, const std::vector<CameraConfig>& others)
    {
        const std::string who = "camera " + std::to_string(camera.id);
        if (!table.contains("stream"))
        {
            report(table, who + " has no stream: add a [[camera.stream]]");
        }
        if (std::any_of(others.begin(), others.end(),
                        [&](const CameraConfig& other) { return other.id == camera.id; }))
        {
            report(place(table, "id"), who + " is defined twice: give each [[camera]] an id of its own");
        }
    }

    void finish(const toml::table& table, StreamConfig& stream, const std::vector<StreamConfig>& others)
    {
        if (std::any_of(others.begin(), others.end(),
                        [&](const StreamConfig& other) { return other.id == stream.id; }))
        {
            report(place(table, "id"), "stream " + std::to_string(stream.id) +
                                           " is defined twice in its camera: give each an id of its own");
        }
        for (const auto& [key, pixels] :
             {std::pair("width", stream.width), std::pair("height", stream.height)})
        {
            const std::string problem = ConfigCheck::side(stream.videoCodec, pixels);
            if (!problem.empty())
            {
                report(place(table, key), std::string(key) + " " + problem);
            }
        }
        if (!stream.videoCodec && !stream.audioCodec)
        {
            report(place(table, "audio"), "a stream without video and without audio has nothing to send");
        }
        checkGroup(table, stream);
        const std::string problem = ConfigCheck::source(stream.source);
        if (!problem.empty())
        {
            report(place(table, table.contains("location") ? "location" : "source"), problem);
        }
        if (stream.source.kind == SourceConfig::Kind::file)
        {
            resolve(stream.source.location);
        }
    }

    void checkGroup(const toml::table& table, const StreamConfig& stream)
    {
        const auto group = MulticastGroup::parse(stream.multicast);
        if (!group)
        {
            return;
        }
        if (std::any_of(groups_.begin(), groups_.end(),
                        [&](const MulticastGroup& other) { return other.overlaps(*group); }))
        {
            report(place(table, "multicast"),
                   "another stream has this multicast group: its four ports must be its own");
        }
        groups_.push_back(*group);
    }

    std::string directory_;
    std::vector<ConfigProblem> problems_;
    std::vector<ConfigProblem> warnings_;
    std::vector<MulticastGroup> groups_;    // fixed groups of streams
    std::vector<ConfigProblem> groupUses_;  // names of groups, in place of messages
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
        return {std::nullopt,
                {{static_cast<int>(where.line), static_cast<int>(where.column),
                  "not valid TOML: " + std::string(error.description())}},
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
