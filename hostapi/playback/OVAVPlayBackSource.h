#pragma once

#include "hostapi/base/HostExport.h"
#include "hostapi/device/DeviceExAbility.h"
#include "hostapi/device/DeviceInfoEx.h"
#include "hostapi/playback/IMediaSource.h"

/// The recorded video and audio of one camera in one interval.
///
/// Made by OVPlayBack::init() for its dispatcher. The setters are called once each, before the source is
/// handed to a dispatcher and on the same thread; nothing is opened by them.
class OV_HOST_API OVAVPlayBackSource : public IMediaSource
{
public:
    OVAVPlayBackSource();
    ~OVAVPlayBackSource() noexcept(false) override;

    /// Copied.
    void setDeviceInfo(const DeviceInfoEx& info);
    /// Copied.
    void setDeviceAbility(const DeviceExAbility& ability);
    /// \param record  which camera and interval; copied
    void setRecordInfo(const RecordInfo& record);
    /// \param type  number of the URL codec's factory
    void setThirdPlatType(int type);

    RecordInfo getRecordInfo() const override;

private:
    struct Impl;
    Impl* impl_;
};
