#pragma once

#include <string>

#include "hostapi/description/MediaInfo.h"
#include "hostapi/description/RecordInfo.h"
#include "hostapi/description/SubMediaInfo.h"

/// The presentation that every stream and every recording of the fake host has.
class FakeDescription
{
public:
    /// Video "trackID=0" and audio "trackID=1"; with a back channel also "trackID=2".
    static MediaInfo presentation(bool withBackChannel);
    static SubMediaInfo backChannel();

    /// "camera 1, 100 to 3700, device, 127.0.0.1"
    static std::string textOf(const RecordInfo& record);
};
