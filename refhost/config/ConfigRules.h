#pragma once
// Tested by tests/refhost/config/ConfigReader_test.cpp.

#include <toml++/toml.h>

#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "refhost/config/Config.h"
#include "refhost/config/ConfigReader.h"
#include "refhost/rtp/multicast/MulticastGroup.h"

namespace refhost
{

/// The rules of a configuration file that involve several keys, or several sections; also makes paths absolute.
///
/// Threads: one at a time.
class ConfigRules
{
public:
    /// \param directory  base of relative paths; empty: they stay
    /// \param file       named in problems; empty: the configuration file itself
    /// \param problems   where what is found is added; outlives the rules
    /// \param warnings   likewise, what can be meant but does nothing
    ConfigRules(std::string directory, std::string file, std::vector<ConfigProblem>& problems,
                std::vector<ConfigProblem>& warnings);

    ConfigProblem at(const toml::source_position& where, std::string message) const;

    /// The rules of a users-file, beside a configuration with this section.
    void usersOf(const TlsConfig& tls);

    /// A section without such rules.
    template <typename Section>
    void finish(const toml::table&, Section&)
    {
    }
    // Sections whose keys were read.
    void finish(const toml::table& table, TalkBackConfig& talkBack);
    void finish(const toml::table& table, TlsConfig& tls);
    void finish(const toml::table& table, RecordingConfig& recording);
    // Sections of a list, with those that were read before.
    void finish(const toml::table& table, GroupConfig& group, const std::vector<GroupConfig>& others);
    void finish(const toml::table& table, UserConfig& user, const std::vector<UserConfig>& others);
    void finish(const toml::table& table, CameraConfig& camera, const std::vector<CameraConfig>& others);
    void finish(const toml::table& table, StreamConfig& stream, const std::vector<StreamConfig>& others);
    void finish(const toml::table& table, ServerConfig& server);
    /// Users against what is known once all files were read.
    void finishUsers(const ServerConfig& config);

private:
    void report(const toml::node& node, std::string message);
    void resolve(std::string& path) const;
    void checkPassword(const toml::table& table, const UserConfig& user);
    void checkAnonymous(const toml::table& table, const UserConfig& user);
    void checkGroup(const toml::table& table, const StreamConfig& stream);
    void findUnused(const toml::table& table, const StreamConfig& stream);
    void warnOfUnused(const toml::table& table, std::initializer_list<std::pair<std::string_view, bool>> keys,
                      std::string_view why);

    const std::string directory_;
    const std::string file_;
    bool certificateUsers_ = false;
    std::vector<ConfigProblem>& problems_;
    std::vector<ConfigProblem>& warnings_;
    std::vector<MulticastGroup> groups_;    ///< fixed groups of streams
    std::vector<ConfigProblem> groupUses_;  ///< names of groups, in place of messages
    /// Names of users in place of messages, and what their password-hash is bound to.
    std::vector<std::pair<ConfigProblem, std::string>> bindings_;
};

}  // namespace refhost
