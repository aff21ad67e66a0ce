#pragma once

#include "hostapi/base/HostExport.h"

/// A device's summary of a session.
class OV_HOST_API GeneralSessionInfo
{
public:
    void setCameraID(int id);
    void setStreamID(int id);
    void setIsMulticastFlag(bool flag);

private:
    friend class DeviceSettings;
    int cameraId_ = 0;
    int streamId_ = 0;
    bool multicast_ = false;
};
