#pragma once

#include <string>

#include "hostapi/base/HostExport.h"

/// A device's names of tracks.
class OV_HOST_API ThirdPlatMgr
{
public:
    std::string getTrackIDByESStreamType(int platformType, int esStreamType, bool backChannel,
                                         int encoderType);
};
