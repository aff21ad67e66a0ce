#pragma once

#include <string>
#include <vector>

#include "hostapi/description/GeneralSessionInfo.h"
#include "hostapi/description/MediaInfo.h"
#include "hostapi/description/RecordInfo.h"
#include "hostapi/device/DeviceInfoEx.h"
#include "hostapi/live/MulticastSessionParameter.h"

/// Access of the runtime to records whose layout is its own.
class DeviceSettings
{
public:
    static DeviceInfoEx device(const std::string& id, const std::string& ip);
    static const std::string& id(const DeviceInfoEx& device);
    static SubMediaInfo track(const std::string& id, bool talkBack);
    static MediaInfo presentation(const std::string& url, const std::vector<SubMediaInfo>& tracks);
    static const std::string& url(const MediaInfo& info);
    static const std::string& id(const SubMediaInfo& track);
    /// Camera, device, address and interval.
    static std::string text(const RecordInfo& record);
    /// Camera, stream and whether it is multicast.
    static std::string text(const GeneralSessionInfo& info);
    static const std::string& id(const MulticastSessionParameter& record);
};
