#include "playback/OVPlaybackControllerFactory.h"

#include "live/NewController.h"
#include "playback/OVPlaybackController.h"
#include "support/OVMutexManager.h"

namespace
{

const char* const unit = "OVPlaybackControllerFactory";

// The lines by which the mutex's diagnostics recognise the guards of this class.
enum GuardLine
{
    guardSetDeviceInfo = 19,
    guardSetDeviceAbility = 25,
    guardSetThirdPlatType = 30,
    guardCreateMedia = 42,
};

}  // namespace

OVPlaybackControllerFactory::OVPlaybackControllerFactory() : thirdPlatType(0) {}

OVPlaybackControllerFactory::~OVPlaybackControllerFactory() noexcept(false) = default;

void OVPlaybackControllerFactory::setDeviceInfo(const DeviceInfoEx& info)
{
    OVMutexManager guard(mutex, unit, guardSetDeviceInfo);
    deviceInfo = info;
}

void OVPlaybackControllerFactory::setDeviceAbility(const DeviceExAbility& ability)
{
    OVMutexManager guard(mutex, unit, guardSetDeviceAbility);
    deviceAbility = ability;
}

void OVPlaybackControllerFactory::setThirdPlatType(int type)
{
    OVMutexManager guard(mutex, unit, guardSetThirdPlatType);
    thirdPlatType = type;
}

int OVPlaybackControllerFactory::createMedia(const std::string& url, SafePointer<IRTSPController>& out, bool)
{
    OVMutexManager guard(mutex, unit, guardCreateMedia);
    return NewController<OVPlaybackController>::in(out).initInstance(thirdPlatType, url, deviceInfo,
                                                                     deviceAbility);
}
