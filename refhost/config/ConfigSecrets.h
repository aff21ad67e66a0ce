#pragma once
// Tested by tests/refhost/CommandLine_test.cpp.

#include <optional>
#include <string>

#include "refhost/config/Config.h"

namespace refhost
{

/// Passwords in a configuration. Threads: any; no state.
class ConfigSecrets
{
public:
    /// Whether its own file holds some: of users, or in a source's URL. Hashes count: those of Digest are as good.
    static bool in(const ServerConfig& config);

    /// \param file  that holds the configuration
    /// \returns a warning when there are passwords in it and everybody can read the file
    static std::optional<std::string> exposedBy(const std::string& file, const ServerConfig& config);
    /// The same for the users-file that it names.
    static std::optional<std::string> exposedByUsersFile(const ServerConfig& config);
};

}  // namespace refhost
