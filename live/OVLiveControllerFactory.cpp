#include "live/OVLiveControllerFactory.h"

#include "live/NewController.h"
#include "live/OVLiveController.h"
#include "support/OVMutexManager.h"

namespace
{

const char* const unit = "OVLiveControllerFactory";

}  // namespace

OVLiveControllerFactory::OVLiveControllerFactory() : thirdPlatType(0) {}

OVLiveControllerFactory::~OVLiveControllerFactory() noexcept(false) = default;

void OVLiveControllerFactory::setDeviceInfo(const DeviceInfoEx& info)
{
    OVMutexManager guard(mutex, unit, __LINE__);
    deviceInfo = info;
}

void OVLiveControllerFactory::setDeviceAbility(const DeviceExAbility& ability)
{
    OVMutexManager guard(mutex, unit, __LINE__);
    deviceAbility = ability;
}

void OVLiveControllerFactory::setThirdPlatType(int type)
{
    OVMutexManager guard(mutex, unit, __LINE__);
    thirdPlatType = type;
}

int OVLiveControllerFactory::createMedia(const std::string& url, SafePointer<IRTSPController>& out,
                                         bool mediaInfoFlag)
{
    OVMutexManager guard(mutex, unit, __LINE__);
    return NewController<OVLiveController>::in(out).initInstance(thirdPlatType, url, deviceInfo,
                                                                 deviceAbility, mediaInfoFlag);
}
