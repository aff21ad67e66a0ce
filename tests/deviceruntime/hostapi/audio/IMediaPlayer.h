#pragma once

#include <cstddef>
#include <cstdint>

#include "hostapi/base/HostExport.h"
#include "hostapi/device/DeviceInfoEx.h"

/// A device's audio output.
class OV_HOST_API IMediaPlayer
{
public:
    DEVICE_OWN virtual ~IMediaPlayer() noexcept(false);
    virtual void setDeviceInfo(const DeviceInfoEx& info) = 0;
    virtual void setEncoderType(int type) = 0;
    virtual int open() = 0;
    virtual int play(const std::uint8_t* samples, std::size_t bytes) = 0;
    virtual void close() = 0;
};
