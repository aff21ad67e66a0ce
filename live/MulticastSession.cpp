#include "live/MulticastSession.h"

#include <cstdio>

#include "hostapi/live/MulticastSessionToken.h"
#include "support/StatusCode.h"

namespace
{

// The code printed for a search that found nothing, whatever the operation returns.
const int nothingFound = 0;

}  // namespace

MulticastSession::MulticastSession(const SafePointer<LiveDispatcherMgr>& dispatcher) : dispatcher_(dispatcher)
{
}

int MulticastSession::deriveId(const MediaUrlParam& param)
{
    const int result =
        MulticastSessionToken().generateMulticastSessionId(param.getCameraID(), param.getStreamID(), id_);
    if (result != statusSuccess)
    {
        printRecordFailure(result);
    }
    return result;
}

const std::string& MulticastSession::id() const
{
    return id_;
}

int MulticastSession::noteMember(const std::string& sessionId, const std::string& trackId,
                                 const std::string& mediaUrl) const
{
    if (!dispatcher_->findMulticastSessionId(id_))
    {
        const SafePointer<MulticastSessionParameter> fresh(new MulticastSessionParameter);
        fresh->setMulticastSessionId(id_);
        // Its result is ignored: the next step finds out whether the record exists.
        dispatcher_->addMulticastSessionParam(fresh);
    }
    SafePointer<MulticastSessionParameter> record;
    int result = dispatcher_->getMulticastSessionParam(id_, record);
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
    if (!record->findMulticastSessionTrackParam(trackId))
    {
        TrackParam track;
        track.setTrackID(trackId);
        track.setMeidaUrl(mediaUrl);
        record->addTrackParam(track);
    }
    result = dispatcher_->addMulticastSessionParam(record);
    if (result != statusSuccess)
    {
        printRecordFailure(result);
    }
    return result;
}

int MulticastSession::findTrackOfMember(const std::string& sessionId, const std::string& trackId) const
{
    if (!dispatcher_->findMulticastSessionId(id_))
    {
        printFailure("findMulticastSessionId", nothingFound);
        return statusNotFound;
    }
    SafePointer<MulticastSessionParameter> record;
    const int result = dispatcher_->getMulticastSessionParam(id_, record);
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

int MulticastSession::endTracks(const SafePointer<MulticastSessionParameter>& record) const
{
    // A copy, because a host's getters of the list and of its tracks need not be const.
    auto tracks = record->getTrackParamList();
    for (TrackParam& track : tracks)
    {
        const int result = dispatcher_->deleteSessionConection(id_, track.getTrackID());
        if (result != statusSuccess)
        {
            return result;
        }
    }
    return statusSuccess;
}

void MulticastSession::printFailure(const char* step, int result)
{
    std::printf("OVMulticastLiveController %s Fail!, return nRet = %d\n", step, result);
}

// Deliberately printed for records that cannot be fetched or stored too.
void MulticastSession::printRecordFailure(int result)
{
    printFailure("generateMulticastSessionId", result);
}
