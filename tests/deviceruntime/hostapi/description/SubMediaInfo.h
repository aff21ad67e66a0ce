#pragma once

#include <string>

#include "hostapi/base/HostExport.h"

/// A device's description of a track.
class OV_HOST_API SubMediaInfo
{
public:
    SubMediaInfo();
    ~SubMediaInfo();
    bool getAudioBackInfoFlag();

private:
    friend class DeviceSettings;
    std::string trackId_;
    std::string mediaType_;
    std::string encodingName_;
    std::string formatParameters_;
    int numbers_[6];
    double frameRate_;
    bool audioBack_;
};
