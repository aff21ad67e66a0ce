#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "refhost/config/Config.h"

namespace refhost
{

/// One problem of a configuration file.
struct ConfigProblem
{
    int line = 0;    ///< from 1; 0 when the problem concerns the whole file
    int column = 0;  ///< characters, from 1
    std::string message;
    std::string file{};  ///< that it is in; empty: the configuration file

    /// "camera.toml:3:8: port must be …", as compilers do.
    std::string toString(const std::string& configFile) const;
};

/// A configuration, or all problems of its file.
struct ConfigResult
{
    std::optional<ServerConfig> config;
    std::vector<ConfigProblem> problems;  ///< in file order; empty when there is a configuration
    std::vector<ConfigProblem> warnings;  ///< in file order: keys read under former names, or without effect
};

/// Reads configuration files (TOML 1.0). Unknown keys, wrong types, values out of range, duplicate ids and
/// inconsistent values are problems; nothing is guessed or silently ignored. A renamed key is also read under
/// its former name, with a warning; both names in one section are a problem. Messages never hold passwords or
/// locations.
///
/// Threads: any.
class ConfigReader
{
public:
    /// \param text       content of the file
    /// \param directory  base of relative paths in the text; empty: the working directory
    static ConfigResult read(std::string_view text, const std::string& directory = {});

    /// Reads a file of at most 1 MiB, and the users-file that it names, which read() leaves alone. Relative
    /// paths in it are relative to its directory.
    static ConfigResult readFile(const std::string& path);

    /// Sets one top-level key from an option of the command line, with the same checks.
    /// \returns the problem, or an empty text
    static std::string set(ServerConfig& config, std::string_view key, const std::string& text);
};

}  // namespace refhost
