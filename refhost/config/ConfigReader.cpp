#include "refhost/config/ConfigReader.h"

#include <toml++/toml.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <tuple>
#include <utility>

#include "refhost/config/ConfigCheck.h"
#include "refhost/config/ConfigKeys.h"
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

// Walks one parsed file and collects its problems.
class Walk
{
public:
    explicit Walk(std::string directory) : directory_(std::move(directory)) {}

    void readServer(const toml::table& table, ServerConfig& out)
    {
        readSection(table, serverKeys(), {"limits", "talk-back", "multicast", "recording", "user", "camera"},
                    out);
        oneSection(table, "limits", limitsKeys(), out.limits);
        oneSection(table, "talk-back", talkBackKeys(), out.talkBack);
        checkTalkBack(table, out.talkBack);
        oneSection(table, "multicast", multicastKeys(), out.multicast);
        oneSection(table, "recording", recordingKeys(), out.recording);
        if (out.recording.directory != RecordingConfig().directory)
        {
            resolve(out.recording.directory);
        }
        eachSection(table, "user", "[[user]]", [&](const toml::table& user) { readUser(user, out.users); });
        eachSection(table, "camera", "[[camera]]",
                    [&](const toml::table& camera) { readCamera(camera, out.cameras); });
        if (!table.contains("camera"))
        {
            out.cameras = ServerConfig::embeddedCameras();
        }
    }

    std::vector<ConfigProblem> takeProblems()
    {
        std::stable_sort(problems_.begin(), problems_.end(),
                         [](const ConfigProblem& a, const ConfigProblem& b)
                         { return std::tie(a.line, a.column) < std::tie(b.line, b.column); });
        return std::move(problems_);
    }

private:
    void report(const toml::source_position& where, std::string message)
    {
        problems_.push_back(
            {static_cast<int>(where.line), static_cast<int>(where.column), std::move(message)});
    }

    void report(const toml::node& node, std::string message)
    {
        report(node.source().begin, std::move(message));
    }

    template <typename Section>
    void readSection(const toml::table& table, const std::vector<ConfigKey<Section>>& keys,
                     const std::vector<std::string_view>& sections, Section& out)
    {
        for (const auto& [key, node] : table)
        {
            const std::string_view name = key.str();
            const auto known =
                std::find_if(keys.begin(), keys.end(),
                             [name = name](const ConfigKey<Section>& k) { return k.name == name; });
            if (known != keys.end())
            {
                readKey(node, *known, out);
                continue;
            }
            if (std::find(sections.begin(), sections.end(), name) != sections.end())
            {
                continue;
            }
            std::vector<std::string_view> names = sections;
            for (const ConfigKey<Section>& k : keys)
            {
                names.push_back(k.name);
            }
            report(key.source().begin, ConfigCheck::unknownKey(name, names));
        }
    }

    template <typename Section>
    void oneSection(const toml::table& table, std::string_view name,
                    const std::vector<ConfigKey<Section>>& keys, Section& out)
    {
        const toml::node* const node = table.get(name);
        if (node == nullptr)
        {
            return;
        }
        if (const toml::table* section = node->as_table())
        {
            readSection(*section, keys, {}, out);
            return;
        }
        report(*node, std::string(name) + " is a section: write [" + std::string(name) + "]");
    }

    template <typename Section>
    void readKey(const toml::node& node, const ConfigKey<Section>& key, Section& out)
    {
        const std::string problem =
            std::visit([&](const auto& setting) { return assign(node, setting, out); }, key.setting);
        if (!problem.empty())
        {
            report(node, std::string(key.name) + " " + problem);
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
    static std::string assign(const toml::node& node, const FlagSetting<Section>& setting, Section& out)
    {
        const auto value = node.value_exact<bool>();
        if (!value)
        {
            return "must be true or false, not " + describe(node);
        }
        setting.value(out) = *value;
        return {};
    }

    template <typename Section, template <typename> typename Setting>
    static std::string assign(const toml::node& node, const Setting<Section>& setting, Section& out)
    {
        const auto value = node.value_exact<std::string>();
        return value ? ConfigCheck::assign(setting, *value, out) : "must be a string, not " + describe(node);
    }

    template <typename Read>
    void eachSection(const toml::table& table, std::string_view name, const std::string& heading, Read read)
    {
        const toml::node* const node = table.get(name);
        if (node == nullptr)
        {
            return;
        }
        const toml::array* const list = node->as_array();
        if (list == nullptr || list->empty())
        {
            report(*node, std::string(name) + " is a list of sections: write " + heading + " before each");
            return;
        }
        for (const toml::node& element : *list)
        {
            if (const toml::table* section = element.as_table())
            {
                read(*section);
                continue;
            }
            report(element, std::string(name) + " is a list of sections: write " + heading + " before each");
        }
    }

    // Where a value stands, or where its section starts when it is left to its default.
    static const toml::node& place(const toml::table& table, std::string_view key)
    {
        const toml::node* const node = table.get(key);
        return node != nullptr ? *node : table;
    }

    void checkTalkBack(const toml::table& table, TalkBackConfig& talkBack)
    {
        if (talkBack.output != "wav")
        {
            return;
        }
        if (talkBack.device.empty())
        {
            const toml::node& section = place(table, "talk-back");
            report(place(*section.as_table(), "output"), "the output \"wav\" needs a path as device");
            return;
        }
        resolve(talkBack.device);
    }

    // A relative path starts at the directory of the file.
    void resolve(std::string& path) const
    {
        if (!directory_.empty() && path.rfind('/', 0) != 0)
        {
            path.insert(0, directory_ + "/");
        }
    }

    void readUser(const toml::table& table, std::vector<UserConfig>& out)
    {
        UserConfig user;
        readSection(table, userKeys(), {}, user);
        for (const std::string_view key : {"name", "password"})
        {
            if (!table.contains(key))
            {
                report(table, "this [[user]] has no " + std::string(key));
            }
        }
        const bool twice =
            std::any_of(out.begin(), out.end(), [&](const UserConfig& u) { return u.name == user.name; });
        if (twice && !user.name.empty())
        {
            report(place(table, "name"), "user \"" + user.name + "\" stands twice");
        }
        out.push_back(std::move(user));
    }

    void readCamera(const toml::table& table, std::vector<CameraConfig>& out)
    {
        CameraConfig camera;
        readSection(table, cameraKeys(), {"stream"}, camera);
        eachSection(table, "stream", "[[camera.stream]]",
                    [&](const toml::table& stream) { readStream(stream, camera); });
        const std::string who = "camera " + std::to_string(camera.id);
        if (!table.contains("stream"))
        {
            report(table, who + " has no stream: add a [[camera.stream]]");
        }
        if (std::any_of(out.begin(), out.end(), [&](const CameraConfig& c) { return c.id == camera.id; }))
        {
            report(place(table, "id"), who + " stands twice: give each [[camera]] an id of its own");
        }
        out.push_back(std::move(camera));
    }

    void readStream(const toml::table& table, CameraConfig& camera)
    {
        StreamConfig stream;
        readSection(table, streamKeys(), {}, stream);
        const auto sameId = [&](const StreamConfig& s) { return s.id == stream.id; };
        if (std::any_of(camera.streams.begin(), camera.streams.end(), sameId))
        {
            report(place(table, "id"), "stream " + std::to_string(stream.id) +
                                           " stands twice in its camera: give each an id of its own");
        }
        if (!stream.videoCodec && !stream.audioCodec)
        {
            report(place(table, "audio"), "a stream without video and without audio has nothing to send");
        }
        if (const auto group = MulticastGroup::parse(stream.multicast))
        {
            const bool taken =
                std::any_of(groups_.begin(), groups_.end(),
                            [&](const MulticastGroup& other) { return other.overlaps(*group); });
            if (taken)
            {
                report(place(table, "multicast"),
                       "another stream has this multicast group: its four ports must be its own");
            }
            groups_.push_back(*group);
        }
        const std::string problem = ConfigCheck::source(stream.source);
        if (!problem.empty())
        {
            report(place(table, table.contains("location") ? "location" : "source"), problem);
        }
        if (stream.source.kind == SourceConfig::Kind::file)
        {
            resolve(stream.source.location);
        }
        camera.streams.push_back(std::move(stream));
    }

    std::string directory_;
    std::vector<ConfigProblem> problems_;
    std::vector<MulticastGroup> groups_;  // that streams have of their own
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
            return {std::nullopt, std::move(problems)};
        }
        return {std::move(config), {}};
    }
    catch (const toml::parse_error& error)
    {
        const toml::source_position& where = error.source().begin;
        return {std::nullopt,
                {{static_cast<int>(where.line), static_cast<int>(where.column),
                  "not valid TOML: " + std::string(error.description())}}};
    }
}

ConfigResult ConfigReader::readFile(const std::string& path)
{
    constexpr std::streamsize longest = 1048576;
    const auto failed = [](const std::string& message) {
        return ConfigResult{std::nullopt, {{0, 0, message}}};
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
    std::string text(static_cast<std::size_t>(longest) + 1, '\0');
    errno = 0;
    file.read(text.data(), longest + 1);
    if (file.bad() || (file.gcount() == 0 && errno != 0))
    {
        return failed(std::string("cannot be read: ") + std::strerror(errno));
    }
    if (file.gcount() > longest)
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
