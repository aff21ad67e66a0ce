#include "refhost/ServedMedia.h"

#include <memory>

#include "hostapi/device/DeviceExAbility.h"
#include "hostapi/live/LiveDispatcherMgr.h"
#include "live/OVLiveControllerFactory.h"
#include "live/OVLiveControllerFactory2.h"
#include "live/OVMulticastLiveControlerFactory.h"
#include "mediaurl/MediaUrlFactoryMap.h"
#include "mediaurl/OrvaneMediaUrlFactory.h"
#include "playback/OVPlaybackControllerFactory.h"
#include "refhost/base/SmallMutex.h"
#include "refhost/description/DescriptionReadiness.h"
#include "refhost/description/MulticastMediaUrl.h"
#include "refhost/description/MulticastMediaUrlFactory.h"
#include "refhost/live/LiveDispatcher.h"
#include "refhost/live/LiveSessionDispatcher.h"
#include "refhost/live/LiveSettings.h"
#include "refhost/live/MulticastRecords.h"

namespace refhost
{
namespace
{

// The library's controller factories have the same setters but no common base that declares them.
template <typename Factory>
SafePointer<IRTSPControllerFactory> makeFactory(const DeviceInfoEx& device,
                                                int thirdPlatType = ServedMedia::platformType)
{
    auto* const factory = new Factory;
    SafePointer<IRTSPControllerFactory> handle(factory);
    factory->setDeviceInfo(device);
    factory->setDeviceAbility(DeviceExAbility());
    factory->setThirdPlatType(thirdPlatType);
    return handle;
}

bool firstPacketOfStream(const std::string& sessionId, const std::string& trackId, RTPPacketInfo& out)
{
    return LiveDispatcher::instance().firstPacketOfPlay(sessionId, trackId, out);
}

bool firstPacketOfSession(const std::string& sessionId, const std::string& trackId, RTPPacketInfo& out)
{
    return LiveSessionDispatcher::instance().firstPacketOfPlay(sessionId, trackId, out);
}

bool firstPacketOfGroup(const std::string& memberId, const std::string& trackId, RTPPacketInfo& out)
{
    return firstPacketOfSession(MulticastRecords::instance().sessionOf(memberId), trackId, out);
}

LiveStart startNamed(const std::string& name, int rate)
{
    return {LiveStart::named(name).value_or(LiveStart::Mode::burst), rate};
}

}  // namespace

void ServedMedia::setStarts(const ServerConfig& config)
{
    LiveSettings live;
    live.start = startNamed(config.gopCache ? config.start : "key-frame", config.startRate);
    LiveStreams::Starts starts;
    for (const CameraConfig& camera : config.cameras)
    {
        for (const StreamConfig& stream : camera.streams)
        {
            if (stream.start != "default")
            {
                starts[LiveStreams::key(camera.id, stream.id)] = startNamed(stream.start, config.startRate);
            }
        }
    }
    LiveDispatcher::instance().configure(live, std::move(starts));
}

ServedMedia::ServedMedia(const ServerConfig& config) : liveController_(config.liveController)
{
    setStarts(config);
    LiveDispatcherMgr::getInstance()->getMTUParam().setMTUValue(config.mtu);
    const auto codecs = MediaUrlFactoryMap::getInstance();
    codecs->registerFactory(platformType, SafePointer<IMediaUrlFactory>(new OrvaneMediaUrlFactory));
    codecs->registerFactory(MulticastMediaUrl::thirdPlatType,
                            SafePointer<IMediaUrlFactory>(new MulticastMediaUrlFactory));
}

ServedMedia::~ServedMedia()
{
    const auto codecs = MediaUrlFactoryMap::getInstance();
    codecs->unregisterFactory(platformType);
    codecs->unregisterFactory(MulticastMediaUrl::thirdPlatType);
}

MediaRoutes ServedMedia::routes(const DeviceInfoEx& device) const
{
    MediaRoutes routes;
    MediaRoutes::Route live;
    live.prefix = "orv/live";
    live.factory = makeFactory<OVLiveControllerFactory>(device);
    live.firstPacket = firstPacketOfStream;
    live.ready = DescriptionReadiness::live;
    live.talkBack = true;
    live.commonControllers = true;
    MediaRoutes::Route second = live;
    second.factory = makeFactory<OVLiveControllerFactory2>(device);
    second.firstPacket = firstPacketOfSession;
    routes.add(liveController_ == "second" ? second : live);
    if (liveController_ == "both")
    {
        // The codec accepts a live URL at any position of the text.
        second.prefix = "second/orv/live";
        routes.add(second);
    }
    MediaRoutes::Route multicast;
    multicast.prefix = "orv/multicast";
    multicast.factory =
        makeFactory<OVMulticastLiveControlerFactory>(device, MulticastMediaUrl::thirdPlatType);
    multicast.firstPacket = firstPacketOfGroup;
    multicast.ready = DescriptionReadiness::multicast;
    multicast.together = std::make_shared<SmallMutex>();
    routes.add(multicast);
    MediaRoutes::Route recorded;
    recorded.prefix = "orv/playback";
    recorded.factory = makeFactory<OVPlaybackControllerFactory>(device);
    recorded.ready = DescriptionReadiness::recorded;
    recorded.recorded = true;
    routes.add(recorded);
    return routes;
}

}  // namespace refhost
