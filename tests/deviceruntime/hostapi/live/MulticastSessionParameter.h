#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "hostapi/base/HostExport.h"
#include "hostapi/live/MulticastMemberSessionParameter.h"
#include "hostapi/live/TrackParam.h"

/// A device's record of a multicast session.
class OV_HOST_API MulticastSessionParameter
{
public:
    MulticastSessionParameter();
    DEVICE_OWN virtual ~MulticastSessionParameter() noexcept(false);
    void setMulticastSessionId(const std::string& id);
    bool findMemberSession(const std::string& memberSessionId);
    void addMemberSessionParam(const MulticastMemberSessionParameter& member);
    void deleteMemberSessionParam(const std::string& memberSessionId);
    std::vector<std::string> getMemberSessionIdList();
    bool findMulticastSessionTrackParam(const std::string& trackId);
    void addTrackParam(const TrackParam& track);
    std::vector<TrackParam> getTrackParamList();

private:
    friend class DeviceSettings;
    std::mutex mutex_;
    std::string multicastSessionId_;
    std::vector<MulticastMemberSessionParameter> members_;
    std::vector<TrackParam> tracks_;
};
