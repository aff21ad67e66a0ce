#pragma once
// Tested by tests/e2e/test_service.py, tests/e2e/test_shutdown.py.

#include <string>
#include <vector>

#include "refhost/config/Config.h"
#include "refhost/service/PassedSockets.h"
#include "refhost/service/ServiceManager.h"

namespace refhost
{

class HttpService;
class RtspServer;

/// The running server: creates all parts, serves until SIGINT or SIGTERM, and destroys the parts in reverse
/// order.
///
/// Threads: the main thread, before it has started another one.
class Application
{
public:
    /// \param warnings  about the configuration file; logged before the configuration's own
    explicit Application(ServerConfig config, std::vector<std::string> warnings = {});

    /// \returns the program's exit code, see ExitCode
    int run();

private:
    void useSocketAddresses();
    void prepareProcess() const;
    bool startHttp(HttpService& http) const;
    void printUrls(const RtspServer& server) const;

    ServerConfig config_;
    std::vector<std::string> warnings_;
    ServiceManager manager_;
    PassedSockets sockets_;
};

}  // namespace refhost
