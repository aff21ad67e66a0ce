#pragma once
// Tested by tests/e2e/test_export.py.

#include <iosfwd>
#include <string>
#include <vector>

#include "refhost/config/Config.h"

namespace refhost
{

/// `ovrtspd --export CAMERA START END FILE`: writes a recorded interval to an MP4 file. A server may run
/// meanwhile. Threads: the main thread, before it has started another one.
class ExportCommand
{
public:
    /// \param out  receives the result, one line
    /// \param err  receives problems, one line each, and progress where it is a terminal
    ExportCommand(std::ostream& out, std::ostream& err) : out_(out), err_(err) {}

    /// \param arguments  camera ("1", or "1/0" for a stream of it), start, end, file
    /// \returns the program's exit code, see ExitCode
    int run(const ServerConfig& config, const std::vector<std::string>& arguments);

private:
    std::ostream& out_;
    std::ostream& err_;
};

}  // namespace refhost
