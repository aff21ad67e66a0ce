#pragma once

#include <string>

#include "hostapi/base/HostExport.h"

/// A device's ids of multicast sessions.
class OV_HOST_API MulticastSessionToken
{
public:
    int generateMulticastSessionId(int cameraId, int streamId, std::string& id);
};
