#include "live/OVLiveController.h"

#include <cstdio>

#include "audioback/OVAudioBackDispatcherMgr.h"
#include "hostapi/base/DataConverter.h"
#include "hostapi/description/MediaInfoTool.h"
#include "hostapi/live/RTPStreamDispatcherMgr.h"
#include "mediaurl/ControllerCodec.h"
#include "support/StatusCode.h"

namespace
{

const char* const controllerName = "OVLiveController";

// Most bytes of RTP payload in a packet, for every transport: with all headers below it fits an Ethernet
// frame also through a tunnel.
const int payloadSize = 1364;

bool isKnownTransport(int kind)
{
    return kind == IConnection::interleavedTcp || kind == IConnection::udpUnicast ||
           kind == IConnection::udpMulticast;
}

}  // namespace

OVLiveController::OVLiveController()
{
    mediaInfo_.clearAllSubMediaInfo();
}

OVLiveController::~OVLiveController() noexcept(false) = default;

int OVLiveController::initInstance(int thirdPlatType, const std::string& url, const DeviceInfoEx& deviceInfo,
                                   const DeviceExAbility& deviceAbility, bool mediaInfoFlag)
{
    const int result = parseMediaUrl(thirdPlatType, url, streamKey_);
    if (result != statusSuccess)
    {
        return result;
    }
    deviceInfo_ = deviceInfo;
    deviceAbility_ = deviceAbility;
    mediaUrl_ = url;
    return createMediaInfo(thirdPlatType, mediaInfoFlag, mediaInfo_);
}

int OVLiveController::parseMediaUrl(int thirdPlatType, const std::string& url, std::string& outKey)
{
    SafePointer<IMediaUrl> codec;
    int result = ControllerCodec(controllerName).create(thirdPlatType, url, codec);
    if (result != statusSuccess)
    {
        return result;
    }
    result = codec->parseMediaUrl(url);
    if (result != statusSuccess)
    {
        std::puts("##########OVLiveController::parseMediaUrl objMediaUrl->parseMediaUrl error!!");
        return result;
    }
    mediaUrlParam_ = codec->objMediaUrlParam;

    std::string cameraText;
    std::string streamText;
    DataConverter::convert(mediaUrlParam_.getCameraID(), cameraText);
    DataConverter::convert(mediaUrlParam_.getStreamID(), streamText);
    outKey = cameraText + "/" + streamText;
    return statusSuccess;
}

int OVLiveController::createMediaInfo(int thirdPlatType, bool mediaInfoFlag, MediaInfo& out)
{
    // A failure is printed with the name of parseMediaUrl here too, deliberately.
    SafePointer<IMediaUrl> codec;
    int result = ControllerCodec(controllerName).create(thirdPlatType, mediaUrl_, codec);
    if (result != statusSuccess)
    {
        return result;
    }
    codec->objMediaUrlParam = mediaUrlParam_;
    const std::string canonicalUrl = codec->toMediaUrl();

    MediaInfoTool tool;
    tool.setDeviceInfoEx(deviceInfo_);
    tool.setDeviceExAbility(deviceAbility_);
    tool.setMediaUrl(canonicalUrl);
    // The codec's own number, not the one that its factory is registered under.
    tool.setThirdPlatType(codec->getThirdPlatType());
    result =
        tool.createMediaInfo(mediaUrlParam_.getCameraID(), mediaUrlParam_.getStreamID(), out, mediaInfoFlag);
    if (result != statusSuccess)
    {
        std::puts("objMediaInfoTool.createMediaInfo Error!!!!");
    }
    return result;
}

int OVLiveController::getMediaInfo(MediaInfo& out)
{
    out = mediaInfo_;
    return statusSuccess;
}

int OVLiveController::setup(const std::string& sessionId, const std::string& trackId,
                            const SafePointer<IConnection>& connection)
{
    if (!isKnownTransport(connection->transportKind))
    {
        return statusRefused;
    }
    SubMediaInfo track;
    if (!mediaInfo_.getSubMediaInfo(trackId, track))
    {
        return statusNotFound;
    }
    if (track.getAudioBackInfoFlag())
    {
        const SafePointer<OVAudioBackDispatcherMgr> talkBack = OVAudioBackDispatcherMgr::getInstance();
        const int result = talkBack->initSession(sessionId, trackId, track, payloadSize);
        if (result != statusSuccess)
        {
            return result;
        }
        audioBackTrackId_ = trackId;
        return talkBack->addSessionConnection(sessionId, connection);
    }
    const SafePointer<RTPStreamDispatcherMgr> dispatcher = RTPStreamDispatcherMgr::getInstance();
    const int result = dispatcher->initRTPBuilder(streamKey_, sessionId, trackId, track, payloadSize);
    if (result != statusSuccess)
    {
        return result;
    }
    return dispatcher->addRTPConnection(streamKey_, sessionId, trackId, connection);
}

bool OVLiveController::isTalkBack(const std::string& trackId) const
{
    // An empty track id is talk-back's, too, until a talk-back track was set up: nothing sets it apart.
    return trackId == audioBackTrackId_;
}

int OVLiveController::play(const std::string& sessionId, const std::string& trackId)
{
    if (isTalkBack(trackId))
    {
        return OVAudioBackDispatcherMgr::getInstance()->startAudio(sessionId);
    }
    return RTPStreamDispatcherMgr::getInstance()->play(streamKey_, sessionId, trackId);
}

int OVLiveController::pause(const std::string& sessionId, const std::string& trackId)
{
    if (isTalkBack(trackId))
    {
        return OVAudioBackDispatcherMgr::getInstance()->pauseAudio(sessionId);
    }
    return RTPStreamDispatcherMgr::getInstance()->pause(streamKey_, sessionId, trackId);
}

int OVLiveController::stop(const std::string& sessionId, const std::string& trackId)
{
    if (isTalkBack(trackId))
    {
        return OVAudioBackDispatcherMgr::getInstance()->stopAudio(sessionId);
    }
    // A track that the dispatcher does not know is as good as ended.
    RTPStreamDispatcherMgr::getInstance()->deleteRTPConnection(streamKey_, sessionId, trackId);
    return statusSuccess;
}

int OVLiveController::getTrackSSRC(const std::string& sessionId, const std::string& trackId, int& ssrc)
{
    if (isTalkBack(trackId))
    {
        return OVAudioBackDispatcherMgr::getInstance()->getTrackSSRC(sessionId, ssrc);
    }
    // Without an SSRC the SETUP stands nevertheless; its answer only goes without.
    RTPStreamDispatcherMgr::getInstance()->getTrackSSRC(streamKey_, sessionId, trackId, ssrc);
    return statusSuccess;
}
