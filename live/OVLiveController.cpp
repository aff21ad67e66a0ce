#include "live/OVLiveController.h"

#include "hostapi/live/RTPStreamDispatcherMgr.h"
#include "live/LivePresentation.h"
#include "live/LiveRange.h"
#include "live/PayloadSize.h"
#include "live/TalkBackTrack.h"
#include "support/StatusCode.h"

namespace
{

const LivePresentation::Form form = {"OVLiveController", &IMediaUrl::parseMediaUrl, &IMediaUrl::toMediaUrl};

}  // namespace

OVLiveController::OVLiveController()
{
    mediaInfo.clearAllSubMediaInfo();
}

OVLiveController::~OVLiveController() noexcept(false) = default;

LivePresentation OVLiveController::presentation()
{
    return LivePresentation(form, {mediaUrl, streamKey, mediaUrlParam, mediaInfo, deviceInfo, deviceAbility});
}

int OVLiveController::initInstance(int thirdPlatType, const std::string& url, const DeviceInfoEx& device,
                                   const DeviceExAbility& ability, bool mediaInfoFlag)
{
    return presentation().init(thirdPlatType, url, device, ability, mediaInfoFlag);
}

int OVLiveController::parseMediaUrl(int thirdPlatType, const std::string& url, std::string& outKey)
{
    return presentation().parse(thirdPlatType, url, outKey);
}

int OVLiveController::createMediaInfo(int thirdPlatType, bool mediaInfoFlag, MediaInfo& out)
{
    return presentation().describe(thirdPlatType, mediaInfoFlag, out);
}

int OVLiveController::getMediaInfo(MediaInfo& out)
{
    out = mediaInfo;
    return statusSuccess;
}

int OVLiveController::mediaInit()
{
    return statusSuccess;
}

int OVLiveController::setup(const std::string& sessionId, const std::string& trackId,
                            const SafePointer<IConnection>& connection)
{
    if (!PayloadSize::isKnownTransport(connection->transportKind))
    {
        return statusRefused;
    }
    SubMediaInfo track;
    if (!mediaInfo.getSubMediaInfo(trackId, track))
    {
        return statusNotFound;
    }
    if (track.getAudioBackInfoFlag())
    {
        return TalkBackTrack(audioBackTrackId)
            .setup(sessionId, trackId, track, PayloadSize::standard, connection);
    }
    const SafePointer<RTPStreamDispatcherMgr> dispatcher = RTPStreamDispatcherMgr::getInstance();
    const int result =
        dispatcher->initRTPBuilder(streamKey, sessionId, trackId, track, PayloadSize::standard);
    if (result != statusSuccess)
    {
        return result;
    }
    return dispatcher->addRTPConnection(streamKey, sessionId, trackId, connection);
}

int OVLiveController::play(const std::string& sessionId, const std::string& trackId)
{
    const TalkBackTrack talkBack(audioBackTrackId);
    if (talkBack.is(trackId))
    {
        return talkBack.play(sessionId);
    }
    return RTPStreamDispatcherMgr::getInstance()->play(streamKey, sessionId, trackId);
}

int OVLiveController::setPlayRange(const std::string&, const std::string&, double, double, int, bool)
{
    return statusSuccess;
}

int OVLiveController::getCurPlayRange(const std::string&, const std::string&, double& start, double& end)
{
    return LiveRange::answer(start, end);
}

int OVLiveController::correctPlayRange(const std::string&, const std::string&, double, double,
                                       double& outStart, double& outEnd)
{
    return LiveRange::answer(outStart, outEnd);
}

int OVLiveController::pause(const std::string& sessionId, const std::string& trackId)
{
    const TalkBackTrack talkBack(audioBackTrackId);
    if (talkBack.is(trackId))
    {
        return talkBack.pause(sessionId);
    }
    return RTPStreamDispatcherMgr::getInstance()->pause(streamKey, sessionId, trackId);
}

int OVLiveController::setPauseRange(const std::string&, const std::string&, double)
{
    return statusSuccess;
}

int OVLiveController::stop(const std::string& sessionId, const std::string& trackId)
{
    const TalkBackTrack talkBack(audioBackTrackId);
    if (talkBack.is(trackId))
    {
        return talkBack.stop(sessionId);
    }
    // A track that the dispatcher does not know has ended already.
    RTPStreamDispatcherMgr::getInstance()->deleteRTPConnection(streamKey, sessionId, trackId);
    return statusSuccess;
}

int OVLiveController::getConnetionState(std::string, std::string, bool& connected)
{
    connected = true;
    return statusSuccess;
}

int OVLiveController::setSpeed(const std::string&, const std::string&, double, double)
{
    return statusSuccess;
}

void OVLiveController::setRTCPFrequence(const std::string&, const std::string&, int) {}

int OVLiveController::getTrackSSRC(const std::string& sessionId, const std::string& trackId, int& ssrc)
{
    const TalkBackTrack talkBack(audioBackTrackId);
    if (talkBack.is(trackId))
    {
        return talkBack.getTrackSSRC(sessionId, ssrc);
    }
    // Without an SSRC the SETUP succeeds nevertheless; only its response lacks the SSRC.
    RTPStreamDispatcherMgr::getInstance()->getTrackSSRC(streamKey, sessionId, trackId, ssrc);
    return statusSuccess;
}
