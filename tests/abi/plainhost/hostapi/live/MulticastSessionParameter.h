#pragma once

#include <list>
#include <string>

#include "hostapi/live/MulticastMemberSessionParameter.h"
#include "hostapi/live/TrackParam.h"

/// Of a host whose operations are const only where the library asks for that. Its lists are lists, and one of
/// them is its own.
class MulticastSessionParameter
{
public:
    MulticastSessionParameter();
    virtual ~MulticastSessionParameter();

    void setMulticastSessionId(const std::string& id);
    bool findMemberSession(const std::string& memberSessionId);
    void addMemberSessionParam(const MulticastMemberSessionParameter& member);
    void deleteMemberSessionParam(const std::string& memberSessionId);
    std::list<std::string> getMemberSessionIdList();
    bool findMulticastSessionTrackParam(const std::string& trackId);
    void addTrackParam(const TrackParam& track);
    const std::list<TrackParam>& getTrackParamList();
};
