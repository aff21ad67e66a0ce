#pragma once
// Tested by tests/e2e/test_shutdown.py.

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
    explicit Application(ServerConfig config);

    /// \returns the program's exit code, see ExitCode
    int run();

private:
    void prepareProcess() const;
    void printUrls(int port) const;

    ServerConfig config_;
};

}  // namespace refhost
