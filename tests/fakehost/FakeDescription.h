#pragma once

#include "hostapi/description/MediaInfo.h"
#include "hostapi/description/SubMediaInfo.h"

/// The presentation that every stream of the fake host has.
class FakeDescription
{
public:
    /// Video "trackID=0" and audio "trackID=1"; with a back channel also "trackID=2".
    static MediaInfo presentation(bool withBackChannel);
    static SubMediaInfo backChannel();
};
