#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "hostapi/base/HostExport.h"
#include "hostapi/description/SubMediaInfo.h"

/// A device's description of a presentation.
class OV_HOST_API MediaInfo
{
public:
    MediaInfo();
    DEVICE_OWN MediaInfo(const MediaInfo& other) = default;
    ~MediaInfo();
    MediaInfo& operator=(const MediaInfo& other);
    void clearAllSubMediaInfo();
    bool getSubMediaInfo(const std::string& trackId, SubMediaInfo& out);

private:
    friend class DeviceSettings;
    std::string mediaUrl_;
    std::int64_t recordBeginTime_;
    double recordSeconds_;
    std::vector<SubMediaInfo> tracks_;
};
