#pragma once

#include <string>

#include "hostapi/base/HostExport.h"

/// A device's track of a multicast session.
class OV_HOST_API TrackParam
{
public:
    TrackParam();
    DEVICE_OWN TrackParam(const TrackParam& other) = default;
    ~TrackParam();
    void setTrackID(const std::string& id);
    const std::string& getTrackID();
    void setMeidaUrl(const std::string& url);

private:
    std::string trackId_;
    std::string mediaUrl_;
};
