#include "live/OVLiveController2.h"

#include <cstdio>

#include "hostapi/live/LiveDispatcherMgr.h"
#include "live/DispatcherSession.h"
#include "live/LivePresentation.h"
#include "live/LiveRange.h"
#include "live/PayloadSize.h"
#include "live/TalkBackTrack.h"
#include "support/StatusCode.h"

namespace
{

const LivePresentation::Form form = {"OVLiveController2", &IMediaUrl::parseMediaUrl, &IMediaUrl::toMediaUrl};

}  // namespace

OVLiveController2::OVLiveController2()
{
    mediaInfo.clearAllSubMediaInfo();
}

OVLiveController2::~OVLiveController2() noexcept(false) = default;

LivePresentation OVLiveController2::presentation()
{
    return LivePresentation(form, {mediaUrl, streamKey, mediaUrlParam, mediaInfo, deviceInfo, deviceAbility});
}

int OVLiveController2::initInstance(int thirdPlatType, const std::string& url, const DeviceInfoEx& device,
                                    const DeviceExAbility& ability, bool mediaInfoFlag)
{
    return presentation().init(thirdPlatType, url, device, ability, mediaInfoFlag);
}

int OVLiveController2::parseMediaUrl(int thirdPlatType, const std::string& url, std::string& outKey)
{
    return presentation().parse(thirdPlatType, url, outKey);
}

int OVLiveController2::createMediaInfo(int thirdPlatType, bool mediaInfoFlag, MediaInfo& out)
{
    return presentation().describe(thirdPlatType, mediaInfoFlag, out);
}

int OVLiveController2::getMediaInfo(MediaInfo& out)
{
    out = mediaInfo;
    return statusSuccess;
}

int OVLiveController2::mediaInit()
{
    return statusSuccess;
}

int OVLiveController2::setup(const std::string& sessionId, const std::string& trackId,
                             const SafePointer<IConnection>& connection)
{
    const SafePointer<LiveDispatcherMgr> dispatcher = LiveDispatcherMgr::getInstance();
    int payloadSize = 0;
    if (!PayloadSize::byTransport(connection->transportKind, dispatcher, payloadSize))
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
        return TalkBackTrack(audioBackTrackId).setup(sessionId, trackId, track, payloadSize, connection);
    }
    const DispatcherSession session(form.controllerName, dispatcher, sessionId);
    const int result = session.open(mediaUrlParam, mediaInfo, payloadSize);
    if (result != statusSuccess)
    {
        return result;
    }
    return session.connect(trackId, connection);
}

int OVLiveController2::play(const std::string& sessionId, const std::string& trackId)
{
    const TalkBackTrack talkBack(audioBackTrackId);
    if (talkBack.is(trackId))
    {
        return talkBack.play(sessionId);
    }
    return LiveDispatcherMgr::getInstance()->play(sessionId, trackId);
}

int OVLiveController2::setPlayRange(const std::string&, const std::string&, double, double, int, bool)
{
    return statusSuccess;
}

int OVLiveController2::getCurPlayRange(const std::string&, const std::string&, double& start, double& end)
{
    return LiveRange::answer(start, end);
}

int OVLiveController2::correctPlayRange(const std::string&, const std::string&, double, double,
                                        double& outStart, double& outEnd)
{
    return LiveRange::answer(outStart, outEnd);
}

int OVLiveController2::pause(const std::string& sessionId, const std::string& trackId)
{
    const TalkBackTrack talkBack(audioBackTrackId);
    if (talkBack.is(trackId))
    {
        return talkBack.pause(sessionId);
    }
    return LiveDispatcherMgr::getInstance()->pause(sessionId, trackId);
}

int OVLiveController2::setPauseRange(const std::string&, const std::string&, double)
{
    return statusSuccess;
}

int OVLiveController2::stop(const std::string& sessionId, const std::string& trackId)
{
    const TalkBackTrack talkBack(audioBackTrackId);
    if (talkBack.is(trackId))
    {
        return talkBack.stop(sessionId);
    }
    // Deliberately before the deletion and whatever its result: readers of the output count these lines.
    std::printf("stop %s/%s success\n", mediaUrl.c_str(), trackId.c_str());
    return LiveDispatcherMgr::getInstance()->deleteSessionConection(sessionId, trackId);
}

int OVLiveController2::getConnetionState(std::string, std::string, bool& connected)
{
    connected = true;
    return statusSuccess;
}

int OVLiveController2::setSpeed(const std::string&, const std::string&, double, double)
{
    return statusSuccess;
}

void OVLiveController2::setRTCPFrequence(const std::string&, const std::string&, int) {}

int OVLiveController2::getTrackSSRC(const std::string& sessionId, const std::string& trackId, int& ssrc)
{
    const TalkBackTrack talkBack(audioBackTrackId);
    if (talkBack.is(trackId))
    {
        return talkBack.getTrackSSRC(sessionId, ssrc);
    }
    return LiveDispatcherMgr::getInstance()->getTrackSSRC(sessionId, trackId, ssrc);
}
