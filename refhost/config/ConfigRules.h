#pragma once
// Tested by tests/refhost/config/ConfigReader_test.cpp.

#include <toml++/toml.h>

#include <string>
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
    /// \param problems   where what is found is added; outlives the rules
    ConfigRules(std::string directory, std::vector<ConfigProblem>& problems);

    static ConfigProblem at(const toml::source_position& where, std::string message);

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
    /// The whole file, once all sections were read.
    void finishFile(const ServerConfig& config);

private:
    void report(const toml::node& node, std::string message);
    void resolve(std::string& path) const;
    void checkAnonymous(const toml::table& table, const UserConfig& user);
    void checkGroup(const toml::table& table, const StreamConfig& stream);

    const std::string directory_;
    std::vector<ConfigProblem>& problems_;
    std::vector<MulticastGroup> groups_;    ///< fixed groups of streams
    std::vector<ConfigProblem> groupUses_;  ///< names of groups, in place of messages
};

}  // namespace refhost
