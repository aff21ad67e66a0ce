#pragma once

#include <iosfwd>
#include <string>
#include <vector>

#include "refhost/config/Config.h"
#include "refhost/config/ConfigReader.h"

namespace refhost
{

/// What the program's command line asks for.
///
/// Exit codes of the program, which --help lists too.
enum ExitCode
{
    exitDone = 0,         ///< ended as it was asked to
    exitFailed = 1,       ///< the server could not start, such as when its port is taken; nothing to list
    exitCommandLine = 2,  ///< the command line is wrong
    exitConfig = 3        ///< the configuration is wrong
};

/// Reads the command line and the configuration that it names, and does what needs no server: --help,
/// --version, --check-config, --dump-config and --recordings.
class CommandLine
{
public:
    /// \param out, err  where results and problems go, each problem one line
    CommandLine(std::ostream& out, std::ostream& err);

    /// \returns true when there is a server to start with config(); otherwise the program ends with
    /// exitCode()
    bool parse(int count, const char* const* arguments);

    const ServerConfig& config() const;

    /// What a server to start has to log about the configuration file, each "FILE:LINE:COLUMN: …".
    std::vector<std::string> warnings() const;

    int exitCode() const;

private:
    bool readConfig(const std::string& file);
    bool listRecordings();
    bool finish(int code);

    std::ostream& out_;
    std::ostream& err_;
    ServerConfig config_ = ServerConfig::embedded();
    std::string file_;
    std::vector<ConfigProblem> warnings_;
    int exitCode_ = exitDone;
};

}  // namespace refhost
