#include "live/OVMulticastLiveController.h"

#include <cstdio>

#include "hostapi/live/LiveDispatcherMgr.h"
#include "hostapi/live/MulticastSessionToken.h"
#include "live/DispatcherSession.h"
#include "live/LivePresentation.h"
#include "live/PayloadSize.h"
#include "support/StatusCode.h"

namespace
{

const LivePresentation::Form form = {"OVMulticastLiveController", &IMediaUrl::parseMulticastMediaUrl,
                                     &IMediaUrl::toMulticastMediaUrl};

using Dispatcher = SafePointer<LiveDispatcherMgr>;
using Record = SafePointer<MulticastSessionParameter>;

void printFailure(const char* step, int result)
{
    std::printf("OVMulticastLiveController %s Fail!, return nRet = %d\n", step, result);
}

// Also for records that cannot be fetched or stored: the line then names this step nevertheless.
void printRecordFailure(int result)
{
    printFailure("generateMulticastSessionId", result);
}

// What a search that found nothing is printed with, whatever the verb returns then.
const int nothingFound = 0;

int generateId(const MediaUrlParam& param, std::string& id)
{
    const int result =
        MulticastSessionToken().generateMulticastSessionId(param.getCameraID(), param.getStreamID(), id);
    if (result != statusSuccess)
    {
        printRecordFailure(result);
    }
    return result;
}

/// Makes the record of a shared session where there is none, and notes a member and a track in it.
int noteMember(const Dispatcher& dispatcher, const std::string& id, const std::string& sessionId,
               const TrackParam& track)
{
    if (!dispatcher->findMulticastSessionId(id))
    {
        const Record fresh(new MulticastSessionParameter);
        fresh->setMulticastSessionId(id);
        // Its result is not asked for: whether the record is there shows at once.
        dispatcher->addMulticastSessionParam(fresh);
    }
    Record record;
    int result = dispatcher->getMulticastSessionParam(id, record);
    if (result != statusSuccess)
    {
        printRecordFailure(result);
        return result;
    }
    if (!record->findMemberSession(sessionId))
    {
        MulticastMemberSessionParameter member;
        member.setMemberSessionId(sessionId);
        record->addMemberSessionParam(member);
    }
    if (!record->findMulticastSessionTrackParam(track.getTrackID()))
    {
        record->addTrackParam(track);
    }
    result = dispatcher->addMulticastSessionParam(record);
    if (result != statusSuccess)
    {
        printRecordFailure(result);
    }
    return result;
}

/// Whether a shared session is there with this member and this track; a failure is printed.
int findTrackOfMember(const Dispatcher& dispatcher, const std::string& id, const std::string& sessionId,
                      const std::string& trackId)
{
    if (!dispatcher->findMulticastSessionId(id))
    {
        printFailure("findMulticastSessionId", nothingFound);
        return statusNotFound;
    }
    Record record;
    const int result = dispatcher->getMulticastSessionParam(id, record);
    if (result != statusSuccess)
    {
        printRecordFailure(result);
        return result;
    }
    if (!record->findMemberSession(sessionId))
    {
        printFailure("findMemberSession", nothingFound);
        return statusNotFound;
    }
    if (!record->findMulticastSessionTrackParam(trackId))
    {
        printFailure("findMulticastSessionTrackParam", nothingFound);
        return statusNotFound;
    }
    return statusSuccess;
}

/// Ends every track of a shared session. \returns the code of the first one that cannot be ended
int endTracks(const Dispatcher& dispatcher, const std::string& id, const Record& record)
{
    for (const TrackParam& track : record->getTrackParamList())
    {
        const int result = dispatcher->deleteSessionConection(id, track.getTrackID());
        if (result != statusSuccess)
        {
            return result;
        }
    }
    return statusSuccess;
}

}  // namespace

OVMulticastLiveController::OVMulticastLiveController()
{
    mediaInfo_.clearAllSubMediaInfo();
}

OVMulticastLiveController::~OVMulticastLiveController() noexcept(false) = default;

LivePresentation OVMulticastLiveController::presentation()
{
    return LivePresentation(form,
                            {mediaUrl_, streamKey_, mediaUrlParam_, mediaInfo_, deviceInfo_, deviceAbility_});
}

int OVMulticastLiveController::initInstance(int thirdPlatType, const std::string& url,
                                            const DeviceInfoEx& deviceInfo,
                                            const DeviceExAbility& deviceAbility, bool mediaInfoFlag)
{
    return presentation().init(thirdPlatType, url, deviceInfo, deviceAbility, mediaInfoFlag);
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
    out = mediaInfo_;
    return statusSuccess;
}

int OVMulticastLiveController::getSessionInfo(GeneralSessionInfo& out)
{
    out.setCameraID(mediaUrlParam_.getCameraID());
    out.setStreamID(mediaUrlParam_.getStreamID());
    out.setIsMulticastFlag(mediaUrlParam_.getMulticastFlag());
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
    if (!mediaInfo_.getSubMediaInfo(trackId, described))
    {
        return statusNotFound;
    }
    std::string id;
    int result = generateId(mediaUrlParam_, id);
    if (result != statusSuccess)
    {
        return result;
    }
    const DispatcherSession shared(form.controllerName, dispatcher, id);
    result = shared.open(mediaUrlParam_, mediaInfo_, payloadSize);
    if (result != statusSuccess)
    {
        return result;
    }
    result = shared.connect(trackId, connection);
    if (result != statusSuccess)
    {
        return result;
    }
    TrackParam track;
    track.setTrackID(trackId);
    track.setMeidaUrl(mediaUrl_);
    return noteMember(dispatcher, id, sessionId, track);
}

int OVMulticastLiveController::play(const std::string& sessionId, const std::string& trackId)
{
    const Dispatcher dispatcher = LiveDispatcherMgr::getInstance();
    std::string id;
    int result = generateId(mediaUrlParam_, id);
    if (result == statusSuccess)
    {
        result = findTrackOfMember(dispatcher, id, sessionId, trackId);
    }
    return result == statusSuccess ? dispatcher->play(id, trackId) : result;
}

int OVMulticastLiveController::pause(const std::string& sessionId, const std::string& trackId)
{
    const Dispatcher dispatcher = LiveDispatcherMgr::getInstance();
    std::string id;
    int result = generateId(mediaUrlParam_, id);
    if (result != statusSuccess)
    {
        return result;
    }
    // From here on nothing is printed, deliberately.
    if (!dispatcher->findMulticastSessionId(id))
    {
        return statusNotFound;
    }
    Record record;
    result = dispatcher->getMulticastSessionParam(id, record);
    if (result != statusSuccess)
    {
        return result;
    }
    if (!record->findMemberSession(sessionId))
    {
        return statusNotFound;
    }
    const bool watchesAlone = record->getMemberSessionIdList().size() <= 1;
    return watchesAlone ? dispatcher->pause(id, trackId) : statusSuccess;
}

int OVMulticastLiveController::stop(const std::string& sessionId, const std::string& trackId)
{
    const Dispatcher dispatcher = LiveDispatcherMgr::getInstance();
    std::string id;
    int result = generateId(mediaUrlParam_, id);
    if (result != statusSuccess)
    {
        return result;
    }
    if (dispatcher->findMulticastSessionId(id))
    {
        Record record;
        result = dispatcher->getMulticastSessionParam(id, record);
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
        result = endTracks(dispatcher, id, record);
        if (result != statusSuccess)
        {
            return result;
        }
        dispatcher->deleteMulticastSessionParam(id);
    }
    std::printf("stop %s/%s success\n", mediaUrl_.c_str(), trackId.c_str());
    return statusSuccess;
}

int OVMulticastLiveController::getTrackSSRC(const std::string& sessionId, const std::string& trackId,
                                            int& ssrc)
{
    const Dispatcher dispatcher = LiveDispatcherMgr::getInstance();
    std::string id;
    int result = generateId(mediaUrlParam_, id);
    if (result == statusSuccess)
    {
        result = findTrackOfMember(dispatcher, id, sessionId, trackId);
    }
    return result == statusSuccess ? dispatcher->getTrackSSRC(id, trackId, ssrc) : result;
}
