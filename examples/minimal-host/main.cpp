// A host with one camera: answers as an RTSP server would, without the network.
#include <cstdio>

#include "live/OVLiveControllerFactory.h"
#include "mediaurl/MediaUrlFactoryMap.h"
#include "mediaurl/OrvaneMediaUrlFactory.h"

namespace
{
constexpr int platform = 1;  // a number of the host's choice, under which URL codec and factories meet

// The transport of one track's packets to one client.
struct Connection : IConnection
{
    Connection() : IConnection(udpUnicast) {}
};

int failed(const char* method, int status)
{
    std::printf("%s: %d\n", method, status);
    return 1;
}
}  // namespace

int main(int count, char** arguments)
{
    const std::string url = count > 1 ? arguments[1] : "rtsp://192.0.2.10/orv/live/1/0";
    MediaUrlFactoryMap::getInstance()->registerFactory(platform,
                                                       SafePointer<IMediaUrlFactory>(new OrvaneMediaUrlFactory));
    OVLiveControllerFactory factory;
    factory.setThirdPlatType(platform);

    SafePointer<IRTSPController> controller;
    MediaInfo media;
    int status = factory.createMedia(url, controller, false);
    if (status != 0 || (status = controller->getMediaInfo(media)) != 0)
    {
        return failed("DESCRIBE", status);
    }
    std::printf("DESCRIBE %s\n", media.mediaUrl.c_str());
    for (const SubMediaInfo& track : media.getAllSubMediaInfo())
    {
        std::printf("  m=%s 0 RTP/AVP %d\n  a=rtpmap:%d %s/%d\n  a=control:%s\n", track.mediaType.c_str(),
                    track.payloadType, track.payloadType, track.encodingName.c_str(), track.clockRate,
                    track.trackId.c_str());
        const std::string session = "12345678";
        const SafePointer<IConnection> connection(new Connection);
        std::printf("SETUP, PLAY, PAUSE, TEARDOWN of %s\n", track.trackId.c_str());
        if ((status = controller->setup(session, track.trackId, connection)) != 0 ||
            (status = controller->play(session, track.trackId)) != 0 ||
            (status = controller->pause(session, track.trackId)) != 0 ||
            (status = controller->stop(session, track.trackId)) != 0)
        {
            return failed("the session", status);
        }
    }
    MediaUrlFactoryMap::getInstance()->unregisterFactory(platform);
}
