#pragma once

#include <string>

#include "hostapi/base/OVMutex.h"
#include "hostapi/device/DeviceExAbility.h"
#include "hostapi/device/DeviceInfoEx.h"
#include "live/IRTSPControllerFactory.h"
#include "support/Export.h"

/// Creates an OVPlaybackController per request, from one consistent set of settings.
///
/// The settings may change at any time and apply to controllers created afterwards. Requires: the platform
/// type is set before the first createMedia().
/// Threads: any; the setters and createMedia() exclude one another. createMedia() holds the factory's lock
/// while it takes the new controller's.
class OV_EXPORT OVPlaybackControllerFactory : public IRTSPControllerFactory
{
public:
    OVPlaybackControllerFactory();
    ~OVPlaybackControllerFactory() noexcept(false) override;
    OVPlaybackControllerFactory(const OVPlaybackControllerFactory&) = delete;
    OVPlaybackControllerFactory& operator=(const OVPlaybackControllerFactory&) = delete;

    /// The device whose streams controllers created afterwards describe; copied.
    void setDeviceInfo(const DeviceInfoEx& info);
    /// The device's abilities, for controllers created afterwards; copied.
    void setDeviceAbility(const DeviceExAbility& ability);
    /// \param type  number under which the host registered the URL codec's factory; 0 until then
    void setThirdPlatType(int type);

    /// \param mediaInfoFlag  ignored: a recording has no back channel
    /// \returns as the interface documents, or -8 for an empty URL
    int createMedia(const std::string& url, SafePointer<IRTSPController>& out, bool mediaInfoFlag) override;

private:
    DeviceInfoEx deviceInfo;
    DeviceExAbility deviceAbility;
    int thirdPlatType;
    OVMutex mutex;
};
