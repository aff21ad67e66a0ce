#pragma once
// Tested by tests/e2e/test_service.py, tests/e2e/test_shutdown.py.

#include <functional>
#include <string>
#include <vector>

#include "refhost/ConfigSource.h"
#include "refhost/config/Config.h"
#include "refhost/service/PassedSockets.h"
#include "refhost/service/ServiceManager.h"

namespace refhost
{

class CameraStreams;
class ConfigReload;
class HttpService;
class RecordingService;
class RtspServer;
class ServerSignals;
class TalkBack;

/// The running server: creates all parts, serves until SIGINT or SIGTERM, and destroys the parts in reverse
/// order.
///
/// Threads: the main thread, before it has started another one.
class Application
{
public:
    /// \param source    where `config` came from, for when it is read again
    /// \param warnings  about the configuration file; logged before the configuration's own
    Application(ConfigSource source, ServerConfig config, std::vector<std::string> warnings = {});

    /// \returns the program's exit code, see ExitCode
    int run();

private:
    /// What another configuration is applied to.
    struct Parts
    {
        RtspServer& server;
        CameraStreams& streams;
        RecordingService& recording;
        TalkBack& talkBack;
    };

    static void addParts(ConfigReload& reload, const Parts& parts);
    int serve(const ServerSignals& signals, ConfigReload& reload, const std::function<void()>& idle);
    void useSocketAddresses();
    void prepareProcess() const;
    bool startHttp(HttpService& http) const;
    void printUrls(const RtspServer& server) const;

    ConfigSource source_;
    ServerConfig config_;
    std::vector<std::string> warnings_;
    ServiceManager manager_;
    PassedSockets sockets_;
};

}  // namespace refhost
