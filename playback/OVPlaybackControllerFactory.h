#pragma once

#include <string>

#include "hostapi/base/OVMutex.h"
#include "hostapi/device/DeviceExAbility.h"
#include "hostapi/device/DeviceInfoEx.h"
#include "live/IRTSPControllerFactory.h"
#include "support/Export.h"

/// Makes an OVPlaybackController per request, from one consistent set of settings.
///
/// The settings may change at any time; they reach only controllers that are made afterwards. Set the
/// platform type before the first createMedia().
/// Threads: any; the setters and createMedia() exclude one another. createMedia() holds the factory's lock
/// while it takes the new controller's.
class OV_EXPORT OVPlaybackControllerFactory : public IRTSPControllerFactory
{
public:
    OVPlaybackControllerFactory();
    ~OVPlaybackControllerFactory() noexcept(false) override;
    OVPlaybackControllerFactory(const OVPlaybackControllerFactory&) = delete;
    OVPlaybackControllerFactory& operator=(const OVPlaybackControllerFactory&) = delete;

    /// The device that every controller made afterwards describes its streams for; copied.
    void setDeviceInfo(const DeviceInfoEx& info);
    /// What that device can do, for every controller made afterwards; copied.
    void setDeviceAbility(const DeviceExAbility& ability);
    /// \param type  number under which the host registered the URL codec's factory; 0 until then
    void setThirdPlatType(int type);

    /// \param mediaInfoFlag  ignored: a recording has no track that a client sends
    /// \returns as the interface says, or -8 for an empty URL
    int createMedia(const std::string& url, SafePointer<IRTSPController>& out, bool mediaInfoFlag) override;

private:
    DeviceInfoEx deviceInfo;
    DeviceExAbility deviceAbility;
    int thirdPlatType;
    OVMutex mutex;
};
