#pragma once
// Tested by tests/refhost/ConfigReload_test.cpp.

#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "refhost/config/Config.h"
#include "refhost/config/ConfigReader.h"

namespace refhost
{

/// Where the server's configuration comes from: a file, and options of the command line that override some of its
/// keys. A value type.
struct ConfigSource
{
    /// What was read, or why it cannot be taken.
    struct Read
    {
        std::optional<ServerConfig> config;
        std::vector<std::string> problems;  ///< "FILE:LINE:COLUMN: …", without secrets
        std::vector<std::string> warnings;  ///< likewise, and those of the configuration itself
    };

    std::string file;                                            ///< empty: the embedded configuration
    std::vector<std::pair<std::string, std::string>> overrides;  ///< keys and values
    std::function<void(ServerConfig& config)> adjust;  ///< what the environment decides; may be null

    /// Reads the file as it is now, and checks it whole.
    Read read() const;
};

}  // namespace refhost
