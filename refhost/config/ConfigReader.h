#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "refhost/config/Config.h"

namespace refhost
{

/// One thing that is wrong with a configuration file.
struct ConfigProblem
{
    int line = 0;    ///< from 1; 0 when the problem is the file as a whole
    int column = 0;  ///< characters, from 1
    std::string message;

    /// "camera.toml:3:8: port must be …", as compilers write it.
    std::string toString(const std::string& file) const;
};

/// A configuration, or every problem of its file.
struct ConfigResult
{
    std::optional<ServerConfig> config;
    std::vector<ConfigProblem> problems;  ///< in the order of the file; empty where there is a configuration
    std::vector<ConfigProblem> warnings;  ///< the same for keys under their former names, which were read
};

/// Reads configuration files (TOML 1.0). Unknown keys, wrong types, values out of range, duplicate numbers and
/// values that do not fit together are problems; nothing is guessed or silently dropped. A renamed key is read
/// under its former name too, with a warning; under both it is a problem. Messages never hold passwords or
/// locations.
///
/// Threads: any.
class ConfigReader
{
public:
    /// \param text       the file's text
    /// \param directory  relative paths in the text start here; empty: the working directory
    static ConfigResult read(std::string_view text, const std::string& directory = {});

    /// Reads a file of at most 1 MiB. Relative paths in it start at its directory.
    static ConfigResult readFile(const std::string& path);

    /// Sets one key of the top of the file from the command line's text, with the same checks.
    /// \returns what is wrong with it, or an empty text
    static std::string set(ServerConfig& config, std::string_view key, const std::string& text);
};

}  // namespace refhost
