#include "refhost/Application.h"

#include <gst/gst.h>
#include <sys/resource.h>

#include <csignal>
#include <cstdio>
#include <memory>
#include <string>
#include <utility>

#include "live/OVLiveControllerFactory.h"
#include "mediaurl/MediaUrlFactoryMap.h"
#include "mediaurl/OrvaneMediaUrlFactory.h"
#include "refhost/CommandLine.h"
#include "refhost/base/Log.h"
#include "refhost/base/MediaLogs.h"
#include "refhost/device/CameraStreams.h"
#include "refhost/device/Device.h"
#include "refhost/live/LiveDispatcher.h"
#include "refhost/rtsp/RtspServer.h"

namespace refhost
{
namespace
{

// Blocks the signals that end the program for this thread and those that it will start, so that only wait()
// sees them. Destroyed, it lets them through again: a second Ctrl-C ends a shutdown that takes too long.
class EndSignals
{
public:
    EndSignals()
    {
        sigemptyset(&signals_);
        sigaddset(&signals_, SIGINT);
        sigaddset(&signals_, SIGTERM);
        pthread_sigmask(SIG_BLOCK, &signals_, &before_);
    }
    EndSignals(const EndSignals&) = delete;
    EndSignals& operator=(const EndSignals&) = delete;
    ~EndSignals()
    {
        pthread_sigmask(SIG_SETMASK, &before_, nullptr);
    }

    int wait() const
    {
        int signal = 0;
        while (sigwait(&signals_, &signal) != 0)
        {
        }
        return signal;
    }

private:
    sigset_t signals_{};
    sigset_t before_{};
};

// Each viewer over TCP is a descriptor, and the customary soft limit of 1024 is there for select(), which
// nothing here uses.
void raiseDescriptorLimit()
{
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur == limit.rlim_max)
    {
        return;
    }
    limit.rlim_cur = limit.rlim_max;
    if (setrlimit(RLIMIT_NOFILE, &limit) != 0)
    {
        Log::warning("the limit of open files stays low; many viewers at once may be refused");
    }
}

// Where the library finds the codec of this host's URLs.
constexpr int platformType = 1;

MediaRoutes makeRoutes(const ServerConfig& config)
{
    MediaUrlFactoryMap::getInstance()->registerFactory(
        platformType, SafePointer<IMediaUrlFactory>(new OrvaneMediaUrlFactory));
    const SafePointer<OVLiveControllerFactory> live(new OVLiveControllerFactory);
    InetAddr address;
    address.setIP(config.listen);
    DeviceInfoEx device;
    device.setDeviceID("ovrtspd");
    device.setDeviceAddr(address);
    live->setDeviceInfo(device);
    live->setDeviceAbility(DeviceExAbility());
    live->setThirdPlatType(platformType);
    MediaRoutes routes;
    routes.add("orv/live", live,
               [](const std::string& sessionId, const std::string& trackId, RTPPacketInfo& out)
               { return LiveDispatcher::instance().firstPacketOfPlay(sessionId, trackId, out); });
    return routes;
}

/// Takes the streams away from the host's classes before they are gone.
class StreamsInUse
{
public:
    explicit StreamsInUse(std::shared_ptr<StreamDirectory> streams)
    {
        Device::setStreams(std::move(streams));
    }
    StreamsInUse(const StreamsInUse&) = delete;
    StreamsInUse& operator=(const StreamsInUse&) = delete;
    ~StreamsInUse()
    {
        Device::setStreams(nullptr);
    }
};

}  // namespace

Application::Application(ServerConfig config) : config_(std::move(config)) {}

void Application::prepareProcess() const
{
    Log::setLevel(*Log::levelNamed(config_.logLevel));
    raiseDescriptorLimit();
    std::signal(SIGPIPE, SIG_IGN);
    MediaLogs::bridge();
    gst_init(nullptr, nullptr);
}

void Application::printUrls(int port) const
{
    const bool ipv6 = config_.listen.find(':') != std::string::npos;
    const std::string host = ipv6 ? "[" + config_.listen + "]" : config_.listen;
    for (const CameraConfig& camera : config_.cameras)
    {
        for (const StreamConfig& stream : camera.streams)
        {
            std::printf("rtsp://%s:%d/orv/live/%d/%d\n", host.c_str(), port, camera.id, stream.id);
        }
    }
    std::fflush(stdout);
}

int Application::run()
{
    const EndSignals endSignals;
    prepareProcess();
    LiveSettings settings;
    settings.gopCache = config_.gopCache;
    LiveDispatcher::instance().configure(settings);
    const StreamsInUse streams(std::make_shared<CameraStreams>(config_));
    RtspServer server(config_, makeRoutes(config_));
    std::string error;
    if (!server.start(error))
    {
        Log::error("{}", error);
        return exitFailed;
    }
    printUrls(server.port());
    endSignals.wait();
    server.stop();
    return exitDone;
}

}  // namespace refhost
