#include "playback/OVPlaybackControllerFactory.h"

#include "live/NewController.h"
#include "playback/OVPlaybackController.h"
#include "support/OVMutexManager.h"

namespace
{

const char* const unit = "OVPlaybackControllerFactory";

// The lines by which the mutex's diagnostics know the guards of this class.
enum GuardLine
{
    guardSetDeviceInfo = 19,
    guardSetDeviceAbility = 25,
    guardSetThirdPlatType = 30,
    guardCreateMedia = 42,
};

}  // namespace

OVPlaybackControllerFactory::OVPlaybackControllerFactory() : thirdPlatType_(0) {}

OVPlaybackControllerFactory::~OVPlaybackControllerFactory() noexcept(false) = default;

void OVPlaybackControllerFactory::setDeviceInfo(const DeviceInfoEx& deviceInfo)
{
    OVMutexManager guard(mutex_, unit, guardSetDeviceInfo);
    deviceInfo_ = deviceInfo;
}

void OVPlaybackControllerFactory::setDeviceAbility(const DeviceExAbility& deviceAbility)
{
    OVMutexManager guard(mutex_, unit, guardSetDeviceAbility);
    deviceAbility_ = deviceAbility;
}

void OVPlaybackControllerFactory::setThirdPlatType(int thirdPlatType)
{
    OVMutexManager guard(mutex_, unit, guardSetThirdPlatType);
    thirdPlatType_ = thirdPlatType;
}

int OVPlaybackControllerFactory::createMedia(const std::string& url, SafePointer<IRTSPController>& out, bool)
{
    OVMutexManager guard(mutex_, unit, guardCreateMedia);
    return NewController<OVPlaybackController>::in(out).initInstance(thirdPlatType_, url, deviceInfo_,
                                                                     deviceAbility_);
}
