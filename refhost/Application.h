#pragma once
// Tested by tests/e2e/test_shutdown.py.

#include <string>
#include <vector>

#include "refhost/config/Config.h"

namespace refhost
{

/// The running server: builds everything in its order, serves until SIGINT or SIGTERM, and takes everything
/// down again in the opposite order.
///
/// Threads: the program's first thread, before it has started another one.
class Application
{
public:
    /// \param warnings  about how the configuration was written; logged before its own
    explicit Application(ServerConfig config, std::vector<std::string> warnings = {});

    /// \returns the program's exit code, see ExitCode
    int run();

private:
    void prepareProcess() const;
    void printUrls(int port) const;

    ServerConfig config_;
    std::vector<std::string> warnings_;
};

}  // namespace refhost
