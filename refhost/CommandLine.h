#pragma once

#include <iosfwd>
#include <string>
#include <vector>

#include "refhost/ConfigSource.h"
#include "refhost/config/Config.h"
#include "refhost/config/ConfigReader.h"

namespace refhost
{

/// Exit codes of the program; --help lists them.
enum ExitCode
{
    exitDone = 0,         ///< ended as requested
    exitFailed = 1,       ///< the server could not start, such as when its port is in use; nothing to list or
                          ///< export, or the file cannot be written
    exitCommandLine = 2,  ///< invalid command line
    exitConfig = 3        ///< invalid configuration
};

/// Reads the command line and the configuration that it names, and handles the options that need no server:
/// --help, --version, --check-config, --dump-config, --hash-password, --recordings, --export, --reload and doctor.
/// Threads: one.
class CommandLine
{
public:
    /// \param out  receives results
    /// \param err  receives problems, one line each
    CommandLine(std::ostream& out, std::ostream& err);

    /// \returns true when a server is to be started with config(); otherwise the program ends with exitCode()
    bool parse(int count, const char* const* arguments);

    const ServerConfig& config() const;

    /// Warnings about the configuration file for the server's log, each "FILE:LINE:COLUMN: …".
    std::vector<std::string> warnings() const;

    /// Where config() came from.
    const ConfigSource& source() const;

    int exitCode() const;

private:
    bool readConfig(const std::string& file);
    bool listRecordings();
    bool examine(const std::string& file, bool json);
    bool hashPassword(std::string user, bool digest);
    bool finish(int code);

    std::ostream& out_;
    std::ostream& err_;
    ServerConfig config_ = ServerConfig::embedded();
    ConfigSource source_;
    std::vector<ConfigProblem> warnings_;
    int exitCode_ = exitDone;
};

}  // namespace refhost
