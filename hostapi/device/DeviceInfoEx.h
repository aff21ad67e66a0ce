#pragma once

#include <string>

#include "hostapi/device/InetAddr.h"

/// Which device this is: its identifier and its address. A plain value, copied whole.
class DeviceInfoEx
{
public:
    /// \param id  text that sets the device apart from others; copied
    void setDeviceID(const std::string& id)
    {
        deviceId_ = id;
    }

    /// Valid until the next setDeviceID() or the end of the record.
    const char* getDeviceID() const
    {
        return deviceId_.c_str();
    }

    /// \param address  where clients reach the device; copied
    void setDeviceAddr(const InetAddr& address)
    {
        address_ = address;
    }

    /// Valid as long as the record.
    const InetAddr& getDeviceAddr() const
    {
        return address_;
    }

private:
    std::string deviceId_;
    InetAddr address_;
};
