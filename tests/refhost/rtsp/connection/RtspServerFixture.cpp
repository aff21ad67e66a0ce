#include "tests/refhost/rtsp/connection/RtspServerFixture.h"

#include <chrono>
#include <filesystem>
#include <thread>

#include "live/OVLiveControllerFactory.h"
#include "live/OVLiveControllerFactory2.h"
#include "mediaurl/MediaUrlFactoryMap.h"
#include "mediaurl/OrvaneMediaUrlFactory.h"
#include "refhost/base/HostClock.h"
#include "refhost/live/LiveDispatcher.h"
#include "refhost/live/LiveSessionDispatcher.h"

namespace refhost
{
namespace test
{
namespace
{

constexpr int platformType = 1;

int countOf(const char* folder)
{
    int count = 0;
    for (const auto& entry : std::filesystem::directory_iterator(folder))
    {
        count += entry.path().empty() ? 0 : 1;
    }
    return count;
}

template <typename Factory, typename Dispatcher>
void addLive(MediaRoutes& routes)
{
    const SafePointer<Factory> live(new Factory);
    live->setThirdPlatType(platformType);
    MediaRoutes::Route route;
    route.prefix = "orv/live";
    route.factory = live;
    route.firstPacket = [](const std::string& sessionId, const std::string& trackId, RTPPacketInfo& out)
    { return Dispatcher::instance().firstPacketOfPlay(sessionId, trackId, out); };
    route.talkBack = true;
    route.commonControllers = true;
    routes.add(route);
}

std::int64_t nowNs()
{
    return nsOf(HostClock::system().now());
}

}  // namespace

RtspServerFixture::RtspServerFixture(Controller controller)
{
    MediaUrlFactoryMap::getInstance()->registerFactory(
        platformType, SafePointer<IMediaUrlFactory>(new OrvaneMediaUrlFactory));
    if (controller == Controller::first)
    {
        addLive<OVLiveControllerFactory, LiveDispatcher>(routes);
    }
    else
    {
        addLive<OVLiveControllerFactory2, LiveSessionDispatcher>(routes);
    }
    Device::setStreams(streams);
    config.port = 0;
    config.threads = 2;
    // The clock runs on, and a test may get no processor for long: only its steps shall end these times.
    config.limits.handshakeTimeout = 60;
    config.limits.setupTimeout = 60;
    config.limits.orphanTimeout = 30;
}

RtspServerFixture::~RtspServerFixture()
{
    server.reset();
    EXPECT_EQ(dispatched(), 0u) << "the server left tracks behind";
    Device::setStreams(nullptr);
}

void RtspServerFixture::start()
{
    RtspServer::Options options;
    options.clock = &time;
    options.sweepInterval = std::chrono::milliseconds(5);
    server = std::make_unique<RtspServer>(config, routes, options);
    std::string error;
    ASSERT_TRUE(server->start(error)) << error;
}

std::string RtspServerFixture::url(const std::string& path) const
{
    return "rtsp://127.0.0.1:" + std::to_string(server->port()) + "/" + path;
}

std::string RtspServerFixture::track(const std::string& presentation, int number)
{
    return presentation + "/trackID=" + std::to_string(number);
}

std::string RtspServerFixture::session(const std::string& id)
{
    return "Session: " + id + "\r\n";
}

std::string RtspServerFixture::setUpTcp(TestClient& client, int tracks)
{
    std::string id;
    for (int i = 0; i < tracks; ++i)
    {
        const Received response =
            client.request("SETUP", track(url(), i), id.empty() ? tcp : tcp + session(id));
        EXPECT_EQ(response.status, 200);
        id = response.session();
    }
    return id;
}

std::string RtspServerFixture::setUpUdp(TestClient& client, const UdpPort& port)
{
    const Received response =
        client.request("SETUP", track(url(), 0), udpPorts + std::to_string(port.port()) + "\r\n");
    EXPECT_EQ(response.status, 200);
    return response.session();
}

void RtspServerFixture::frame(bool key, std::size_t packets)
{
    videoTime_ += 3600;
    streams->streams[0]->feed("trackID=0", makeUnit(videoTime_, nowNs(), key, packets));
}

void RtspServerFixture::feedAudio()
{
    audioTime_ += 160;
    streams->streams[0]->feed("trackID=1", makeUnit(audioTime_, nowNs(), true, 1, 160, 160));
}

bool RtspServerFixture::endedAfterHandshakeTimes(TestClient& client, int times)
{
    for (int i = 0; i < times; ++i)
    {
        time.advance(std::chrono::milliseconds(config.limits.handshakeTimeout * 1000));
        if (client.ended(20))
        {
            return true;
        }
    }
    return false;
}

bool RtspServerFixture::eventually(const std::function<bool()>& done)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!done())
    {
        if (std::chrono::steady_clock::now() > deadline)
        {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

std::size_t RtspServerFixture::dispatched()
{
    return LiveDispatcher::instance().trackCount() + LiveSessionDispatcher::instance().sessionCount();
}

int RtspServerFixture::openDescriptors()
{
    return countOf("/proc/self/fd");
}

int RtspServerFixture::threads()
{
    return countOf("/proc/self/task");
}

}  // namespace test
}  // namespace refhost
