#pragma once
// Tested by tests/live/LiveControllerFactories_test.cpp.

#include <string>

#include "hostapi/base/OVMutex.h"
#include "hostapi/device/DeviceExAbility.h"
#include "hostapi/device/DeviceInfoEx.h"
#include "live/IRTSPControllerFactory.h"
#include "support/Export.h"

/// Creates an OVLiveController2 per request, from one consistent set of settings.
///
/// The settings may change at any time and apply to controllers created afterwards. Requires: the platform
/// type is set before the first createMedia().
/// Threads: any; the setters and createMedia() exclude one another.
class OV_EXPORT OVLiveControllerFactory2 : public IRTSPControllerFactory
{
public:
    OVLiveControllerFactory2();
    ~OVLiveControllerFactory2() noexcept(false) override;
    OVLiveControllerFactory2(const OVLiveControllerFactory2&) = delete;
    OVLiveControllerFactory2& operator=(const OVLiveControllerFactory2&) = delete;

    /// The device whose streams controllers created afterwards describe; copied.
    void setDeviceInfo(const DeviceInfoEx& info);
    /// The device's abilities, for controllers created afterwards; copied.
    void setDeviceAbility(const DeviceExAbility& ability);
    /// \param type  number under which the host registered the URL codec's factory
    void setThirdPlatType(int type);

    int createMedia(const std::string& url, SafePointer<IRTSPController>& out, bool mediaInfoFlag) override;

private:
    DeviceInfoEx deviceInfo;
    DeviceExAbility deviceAbility;
    int thirdPlatType;
    OVMutex mutex;
};
