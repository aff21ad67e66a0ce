#include "refhost/config/ConfigRules.h"

#include <algorithm>
#include <filesystem>
#include <system_error>
#include <utility>

#include "refhost/base/Log.h"
#include "refhost/config/CameraSet.h"
#include "refhost/config/ConfigCheck.h"
#include "refhost/config/PasswordHash.h"

namespace refhost
{
namespace
{

/// The node of a value, or its section when the value is missing.
const toml::node& place(const toml::table& table, std::string_view key)
{
    const toml::node* const node = table.get(key);
    return node != nullptr ? *node : table;
}

}  // namespace

ConfigRules::ConfigRules(std::string directory, std::string file, std::vector<ConfigProblem>& problems,
                         std::vector<ConfigProblem>& warnings)
    : directory_(std::move(directory)), file_(std::move(file)), problems_(problems), warnings_(warnings)
{
}

ConfigProblem ConfigRules::at(const toml::source_position& where, std::string message) const
{
    return {static_cast<int>(where.line), static_cast<int>(where.column), std::move(message), file_};
}

void ConfigRules::usersOf(const TlsConfig& tls)
{
    certificateUsers_ = tls.certificateUsers;
}

void ConfigRules::finish(const toml::table&, ServerConfig& server)
{
    if (!server.usersFile.empty())
    {
        resolve(server.usersFile);
    }
}

void ConfigRules::report(const toml::node& node, std::string message)
{
    problems_.push_back(at(node.source().begin, std::move(message)));
}

/// A relative path is relative to the file's directory.
void ConfigRules::resolve(std::string& path) const
{
    if (!directory_.empty() && path.rfind('/', 0) != 0)
    {
        path.insert(0, directory_ + "/");
    }
}

void ConfigRules::finish(const toml::table& table, TalkBackConfig& talkBack)
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

void ConfigRules::finish(const toml::table& table, TlsConfig& tls)
{
    if (tls.selfSigned && !tls.certificate.empty())
    {
        report(place(table, "self-signed"), "self-signed = true makes a certificate: remove one of the two");
    }
    usersOf(tls);
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

void ConfigRules::finish(const toml::table&, RecordingConfig& recording)
{
    if (recording.directory != RecordingConfig().directory)
    {
        resolve(recording.directory);
    }
}

void ConfigRules::finish(const toml::table& table, GroupConfig& group, const std::vector<GroupConfig>& others)
{
    if (!table.contains("name"))
    {
        report(table, "this [[group]] has no name");
    }
    const std::string& name = group.name;
    if (!name.empty() && (name.find(',') != std::string::npos || name.front() == ' ' || name.back() == ' '))
    {
        report(place(table, "name"), "name of a group must not hold a comma, nor start or end with a blank");
    }
    const bool twice = std::any_of(others.begin(), others.end(),
                                   [&](const GroupConfig& other) { return other.name == name; });
    if (twice && !name.empty())
    {
        report(place(table, "name"), "group \"" + name + "\" is defined twice");
    }
}

void ConfigRules::finish(const toml::table& table, UserConfig& user, const std::vector<UserConfig>& others)
{
    if (!table.contains("name"))
    {
        report(table, "this [[user]] has no name");
    }
    if (user.isAnonymous())
    {
        checkAnonymous(table, user);
    }
    else
    {
        checkPassword(table, user);
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

void ConfigRules::checkPassword(const toml::table& table, const UserConfig& user)
{
    const bool plain = table.contains("password");
    const bool hashed = table.contains("password-hash");
    if (plain && hashed)
    {
        report(place(table, "password-hash"), "this [[user]] has a password too: remove one of the two");
    }
    if (!plain && !hashed && !certificateUsers_)
    {
        report(table, "this [[user]] has no password and no password-hash");
    }
    const auto hash = PasswordHash::parse(user.passwordHash);
    if (hash && hash->servesDigest())
    {
        bindings_.emplace_back(at(place(table, "password-hash").source().begin, user.name), hash->binding);
    }
}

/// Whoever does not log in must never be able to do everything.
void ConfigRules::checkAnonymous(const toml::table& table, const UserConfig& user)
{
    if (table.contains("password") || table.contains("password-hash"))
    {
        return;  // it is not valid, which is reported
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

void ConfigRules::finishUsers(const ServerConfig& config)
{
    const std::vector<GroupConfig>& groups = config.groups;
    for (const ConfigProblem& use : groupUses_)
    {
        const bool known = std::any_of(groups.begin(), groups.end(),
                                       [&](const GroupConfig& group) { return group.name == use.message; });
        if (!known)
        {
            problems_.push_back({use.line, use.column,
                                 "there is no [[group]] named \"" + Log::safe(use.message, 40) + "\"",
                                 file_});
        }
    }
    for (const auto& [where, binding] : bindings_)
    {
        if (binding != PasswordHash::bindingOf(where.message, config.realm))
        {
            problems_.push_back({where.line, where.column,
                                 "password-hash was made for another user name or realm: make it with "
                                 "ovrtspd --hash-password NAME, and -c FILE where the realm is configured",
                                 file_});
        }
    }
}

void ConfigRules::finish(const toml::table& table, CameraConfig& camera,
                         const std::vector<CameraConfig>& others)
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

void ConfigRules::finish(const toml::table& table, StreamConfig& stream,
                         const std::vector<StreamConfig>& others)
{
    if (std::any_of(others.begin(), others.end(),
                    [&](const StreamConfig& other) { return other.id == stream.id; }))
    {
        report(place(table, "id"), "stream " + std::to_string(stream.id) +
                                       " is defined twice in its camera: give each an id of its own");
    }
    for (const auto& [key, pixels] : {std::pair("width", stream.width), std::pair("height", stream.height)})
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
    findUnused(table, stream);
    const std::string problem = ConfigCheck::source(stream.source);
    if (!problem.empty())
    {
        report(place(table, table.contains("location") ? "location" : "source"), problem);
    }
    if (stream.source.kind == SourceConfig::Kind::file)
    {
        resolve(stream.source.location);
        std::error_code ignored;
        if (std::filesystem::is_directory(stream.source.location, ignored))
        {
            report(place(table, "location"), "location is a folder: name a media file in it");
        }
    }
}

/// Keys that mean nothing for the source that they stand beside. Values that are the defaults say nothing.
void ConfigRules::findUnused(const toml::table& table, const StreamConfig& stream)
{
    using Kind = SourceConfig::Kind;
    const SourceConfig& source = stream.source;
    const StreamConfig usual;
    // A file may have to be encoded: only who opens it knows.
    if (source.kind == Kind::rtsp)
    {
        warnOfUnused(table,
                     {{"width", stream.width != usual.width},
                      {"height", stream.height != usual.height},
                      {"frame-rate", stream.frameRate != usual.frameRate},
                      {"bit-rate", stream.bitRate != usual.bitRate},
                      {"gop", stream.gop != usual.gop}},
                     "video that can be sent as it is, is; they hold where it has to be encoded");
    }
    if (source.kind != Kind::rtsp)
    {
        warnOfUnused(table,
                     {{"transport", source.transport != usual.source.transport},
                      {"tls-verify", source.tlsVerify != usual.source.tlsVerify},
                      {"tls-fingerprint", source.tlsFingerprint != usual.source.tlsFingerprint}},
                     "only \"rtsp\" heeds them");
    }
}

void ConfigRules::warnOfUnused(const toml::table& table,
                               std::initializer_list<std::pair<std::string_view, bool>> keys,
                               std::string_view why)
{
    const toml::node* first = nullptr;
    std::string names;
    for (const auto& [key, isSet] : keys)
    {
        if (isSet)
        {
            first = first == nullptr ? &place(table, key) : first;
            names += (names.empty() ? "" : ", ") + std::string(key);
        }
    }
    if (first != nullptr)
    {
        warnings_.push_back(at(first->source().begin,
                               "without effect for this source: " + names + " (" + std::string(why) + ")"));
    }
}

void ConfigRules::checkGroup(const toml::table& table, const StreamConfig& stream)
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

}  // namespace refhost
