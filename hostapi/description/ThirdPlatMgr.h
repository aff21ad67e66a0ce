#pragma once

#include <string>

#include "hostapi/base/HostExport.h"

/// Names the tracks of a presentation. No state; used on one thread.
class OV_HOST_API ThirdPlatMgr
{
public:
    /// The track id that a description gives the elementary stream of a type.
    /// \param platformType  number of the URL codec's factory
    /// \param esStreamType  1 video, 2 audio
    /// \param backChannel   true for what a client sends to the device
    /// \param encoderType   encoder type number of the host
    /// \returns SubMediaInfo::trackId of that track; empty when there is none of that type
    std::string getTrackIDByESStreamType(int platformType, int esStreamType, bool backChannel,
                                         int encoderType);
};
