#pragma once

#include <string>

#include "hostapi/description/SubMediaInfo.h"

/// Of a host whose operations are const only where the library asks for that.
class MediaInfo
{
public:
    void clearAllSubMediaInfo();
    bool getSubMediaInfo(const std::string& trackId, SubMediaInfo& out);
};
