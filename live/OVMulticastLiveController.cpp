#include "live/OVMulticastLiveController.h"

#include <cstdio>

#include "hostapi/live/LiveDispatcherMgr.h"
#include "live/DispatcherSession.h"
#include "live/LivePresentation.h"
#include "live/LiveRange.h"
#include "live/MulticastSession.h"
#include "live/PayloadSize.h"
#include "support/StatusCode.h"

namespace
{

const LivePresentation::Form form = {"OVMulticastLiveController", &IMediaUrl::parseMulticastMediaUrl,
                                     &IMediaUrl::toMulticastMediaUrl};

using Dispatcher = SafePointer<LiveDispatcherMgr>;
using Record = SafePointer<MulticastSessionParameter>;

}  // namespace

OVMulticastLiveController::OVMulticastLiveController()
{
    mediaInfo.clearAllSubMediaInfo();
}

OVMulticastLiveController::~OVMulticastLiveController() noexcept(false) = default;

LivePresentation OVMulticastLiveController::presentation()
{
    return LivePresentation(form, {mediaUrl, streamKey, mediaUrlParam, mediaInfo, deviceInfo, deviceAbility});
}

int OVMulticastLiveController::initInstance(int thirdPlatType, const std::string& url,
                                            const DeviceInfoEx& device, const DeviceExAbility& ability,
                                            bool mediaInfoFlag)
{
    return presentation().init(thirdPlatType, url, device, ability, mediaInfoFlag);
}

int OVMulticastLiveController::parseMediaUrl(int thirdPlatType, const std::string& url, std::string& outKey)
{
    return presentation().parse(thirdPlatType, url, outKey);
}

int OVMulticastLiveController::createMediaInfo(int thirdPlatType, bool mediaInfoFlag, MediaInfo& out)
{
    return presentation().describe(thirdPlatType, mediaInfoFlag, out);
}

int OVMulticastLiveController::getMediaInfo(MediaInfo& out)
{
    out = mediaInfo;
    return statusSuccess;
}

int OVMulticastLiveController::getSessionInfo(GeneralSessionInfo& out)
{
    out.setCameraID(mediaUrlParam.getCameraID());
    out.setStreamID(mediaUrlParam.getStreamID());
    out.setIsMulticastFlag(mediaUrlParam.getMulticastFlag());
    return statusSuccess;
}

int OVMulticastLiveController::mediaInit()
{
    return statusSuccess;
}

int OVMulticastLiveController::setup(const std::string& sessionId, const std::string& trackId,
                                     const SafePointer<IConnection>& connection)
{
    const Dispatcher dispatcher = LiveDispatcherMgr::getInstance();
    int payloadSize = 0;
    if (!PayloadSize::byTransport(connection->transportKind, dispatcher, payloadSize))
    {
        return statusRefused;
    }
    SubMediaInfo described;
    if (!mediaInfo.getSubMediaInfo(trackId, described))
    {
        return statusNotFound;
    }
    MulticastSession session(dispatcher);
    int result = session.deriveId(mediaUrlParam);
    if (result != statusSuccess)
    {
        return result;
    }
    const DispatcherSession shared(form.controllerName, dispatcher, session.id());
    result = shared.open(mediaUrlParam, mediaInfo, payloadSize);
    if (result != statusSuccess)
    {
        return result;
    }
    result = shared.connect(trackId, connection);
    if (result != statusSuccess)
    {
        return result;
    }
    return session.noteMember(sessionId, trackId, mediaUrl);
}

int OVMulticastLiveController::play(const std::string& sessionId, const std::string& trackId)
{
    const Dispatcher dispatcher = LiveDispatcherMgr::getInstance();
    MulticastSession session(dispatcher);
    int result = session.deriveId(mediaUrlParam);
    if (result == statusSuccess)
    {
        result = session.findTrackOfMember(sessionId, trackId);
    }
    return result == statusSuccess ? dispatcher->play(session.id(), trackId) : result;
}

int OVMulticastLiveController::setPlayRange(const std::string&, const std::string&, double, double, int, bool)
{
    return statusSuccess;
}

int OVMulticastLiveController::getCurPlayRange(const std::string&, const std::string&, double& start,
                                               double& end)
{
    return LiveRange::answer(start, end);
}

int OVMulticastLiveController::correctPlayRange(const std::string&, const std::string&, double, double,
                                                double& outStart, double& outEnd)
{
    return LiveRange::answer(outStart, outEnd);
}

int OVMulticastLiveController::pause(const std::string& sessionId, const std::string& trackId)
{
    const Dispatcher dispatcher = LiveDispatcherMgr::getInstance();
    MulticastSession session(dispatcher);
    int result = session.deriveId(mediaUrlParam);
    if (result != statusSuccess)
    {
        return result;
    }
    // Deliberately, nothing is printed from here on.
    if (!dispatcher->findMulticastSessionId(session.id()))
    {
        return statusNotFound;
    }
    Record record;
    result = dispatcher->getMulticastSessionParam(session.id(), record);
    if (result != statusSuccess)
    {
        return result;
    }
    if (!record->findMemberSession(sessionId))
    {
        return statusNotFound;
    }
    const bool watchesAlone = record->getMemberSessionIdList().size() <= 1;
    return watchesAlone ? dispatcher->pause(session.id(), trackId) : statusSuccess;
}

int OVMulticastLiveController::setPauseRange(const std::string&, const std::string&, double)
{
    return statusSuccess;
}

int OVMulticastLiveController::stop(const std::string& sessionId, const std::string& trackId)
{
    const Dispatcher dispatcher = LiveDispatcherMgr::getInstance();
    MulticastSession session(dispatcher);
    int result = session.deriveId(mediaUrlParam);
    if (result != statusSuccess)
    {
        return result;
    }
    if (dispatcher->findMulticastSessionId(session.id()))
    {
        Record record;
        result = dispatcher->getMulticastSessionParam(session.id(), record);
        if (result != statusSuccess)
        {
            return result;
        }
        if (record->findMemberSession(sessionId))
        {
            record->deleteMemberSessionParam(sessionId);
        }
        if (!record->getMemberSessionIdList().empty())
        {
            return dispatcher->addMulticastSessionParam(record);
        }
        result = session.endTracks(record);
        if (result != statusSuccess)
        {
            return result;
        }
        dispatcher->deleteMulticastSessionParam(session.id());
    }
    std::printf("stop %s/%s success\n", mediaUrl.c_str(), trackId.c_str());
    return statusSuccess;
}

int OVMulticastLiveController::getConnetionState(std::string, std::string, bool& connected)
{
    connected = true;
    return statusSuccess;
}

int OVMulticastLiveController::setSpeed(const std::string&, const std::string&, double, double)
{
    return statusSuccess;
}

void OVMulticastLiveController::setRTCPFrequence(const std::string&, const std::string&, int) {}

int OVMulticastLiveController::getTrackSSRC(const std::string& sessionId, const std::string& trackId,
                                            int& ssrc)
{
    const Dispatcher dispatcher = LiveDispatcherMgr::getInstance();
    MulticastSession session(dispatcher);
    int result = session.deriveId(mediaUrlParam);
    if (result == statusSuccess)
    {
        result = session.findTrackOfMember(sessionId, trackId);
    }
    return result == statusSuccess ? dispatcher->getTrackSSRC(session.id(), trackId, ssrc) : result;
}
