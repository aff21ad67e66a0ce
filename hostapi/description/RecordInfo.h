#pragma once

#include <cstdint>
#include <string>

/// Which recording of which device: a camera and an interval of time. A plain value, copied whole.
///
/// The interval is in whole seconds of the recording index's time, 32 bits without sign: the low 32 of what a
/// setter is given.
class RecordInfo
{
public:
    /// \param id  number of the camera, as in the URL
    void setCameraId(int id)
    {
        cameraId_ = id;
    }

    /// 0 unless set.
    int getCameraId() const
    {
        return cameraId_;
    }

    /// \param id  identifier of the device that recorded; null is no text
    void setDeviceId(const char* id)
    {
        deviceId_ = id == nullptr ? "" : id;
    }

    /// Valid until the next setDeviceId() or the end of the record.
    const char* getDeviceId() const
    {
        return deviceId_.c_str();
    }

    /// \param ip  numeric address of that device; null is no text
    void setDeviceIP(const char* ip)
    {
        deviceIp_ = ip == nullptr ? "" : ip;
    }

    /// Valid until the next setDeviceIP() or the end of the record.
    const char* getDeviceIP() const
    {
        return deviceIp_.c_str();
    }

    /// \param seconds  begin of the interval
    void setRecordBeginTime(unsigned long seconds)
    {
        beginTime_ = static_cast<std::uint32_t>(seconds);
    }

    /// 0 unless set.
    unsigned long getRecordBeginTime() const
    {
        return beginTime_;
    }

    /// \param seconds  end of the interval
    void setRecordEndTime(unsigned long seconds)
    {
        endTime_ = static_cast<std::uint32_t>(seconds);
    }

    /// May precede the begin: URLs are not checked for it.
    unsigned long getRecordEndTime() const
    {
        return endTime_;
    }

private:
    int cameraId_ = 0;
    std::string deviceId_;
    std::string deviceIp_;
    std::uint32_t beginTime_ = 0;
    std::uint32_t endTime_ = 0;
};
