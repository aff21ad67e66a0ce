#pragma once

#include "hostapi/base/HostExport.h"

/// Where a device's playback takes its media from.
class OV_HOST_API IMediaSource
{
public:
    DEVICE_OWN virtual ~IMediaSource() noexcept(false);
};
