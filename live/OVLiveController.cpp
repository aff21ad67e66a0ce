#include "live/OVLiveController.h"

#include "hostapi/live/RTPStreamDispatcherMgr.h"
#include "live/LivePresentation.h"
#include "live/PayloadSize.h"
#include "live/TalkBackTrack.h"
#include "support/StatusCode.h"

namespace
{

const LivePresentation::Form form = {"OVLiveController", &IMediaUrl::parseMediaUrl, &IMediaUrl::toMediaUrl};

}  // namespace

OVLiveController::OVLiveController()
{
    mediaInfo_.clearAllSubMediaInfo();
}

OVLiveController::~OVLiveController() noexcept(false) = default;

LivePresentation OVLiveController::presentation()
{
    return LivePresentation(form,
                            {mediaUrl_, streamKey_, mediaUrlParam_, mediaInfo_, deviceInfo_, deviceAbility_});
}

int OVLiveController::initInstance(int thirdPlatType, const std::string& url, const DeviceInfoEx& deviceInfo,
                                   const DeviceExAbility& deviceAbility, bool mediaInfoFlag)
{
    return presentation().init(thirdPlatType, url, deviceInfo, deviceAbility, mediaInfoFlag);
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
    out = mediaInfo_;
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
    if (!mediaInfo_.getSubMediaInfo(trackId, track))
    {
        return statusNotFound;
    }
    if (track.getAudioBackInfoFlag())
    {
        return TalkBackTrack(audioBackTrackId_)
            .setup(sessionId, trackId, track, PayloadSize::standard, connection);
    }
    const SafePointer<RTPStreamDispatcherMgr> dispatcher = RTPStreamDispatcherMgr::getInstance();
    const int result =
        dispatcher->initRTPBuilder(streamKey_, sessionId, trackId, track, PayloadSize::standard);
    if (result != statusSuccess)
    {
        return result;
    }
    return dispatcher->addRTPConnection(streamKey_, sessionId, trackId, connection);
}

int OVLiveController::play(const std::string& sessionId, const std::string& trackId)
{
    const TalkBackTrack talkBack(audioBackTrackId_);
    if (talkBack.is(trackId))
    {
        return talkBack.play(sessionId);
    }
    return RTPStreamDispatcherMgr::getInstance()->play(streamKey_, sessionId, trackId);
}

int OVLiveController::pause(const std::string& sessionId, const std::string& trackId)
{
    const TalkBackTrack talkBack(audioBackTrackId_);
    if (talkBack.is(trackId))
    {
        return talkBack.pause(sessionId);
    }
    return RTPStreamDispatcherMgr::getInstance()->pause(streamKey_, sessionId, trackId);
}

int OVLiveController::stop(const std::string& sessionId, const std::string& trackId)
{
    const TalkBackTrack talkBack(audioBackTrackId_);
    if (talkBack.is(trackId))
    {
        return talkBack.stop(sessionId);
    }
    // A track that the dispatcher does not know is as good as ended.
    RTPStreamDispatcherMgr::getInstance()->deleteRTPConnection(streamKey_, sessionId, trackId);
    return statusSuccess;
}

int OVLiveController::getTrackSSRC(const std::string& sessionId, const std::string& trackId, int& ssrc)
{
    const TalkBackTrack talkBack(audioBackTrackId_);
    if (talkBack.is(trackId))
    {
        return talkBack.getTrackSSRC(sessionId, ssrc);
    }
    // Without an SSRC the SETUP stands nevertheless; its answer only goes without.
    RTPStreamDispatcherMgr::getInstance()->getTrackSSRC(streamKey_, sessionId, trackId, ssrc);
    return statusSuccess;
}
