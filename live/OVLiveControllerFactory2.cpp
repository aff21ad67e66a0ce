#include "live/OVLiveControllerFactory2.h"

#include "live/NewController.h"
#include "live/OVLiveController2.h"
#include "support/OVMutexManager.h"

namespace
{

const char* const unit = "OVLiveControllerFactory2";

}  // namespace

OVLiveControllerFactory2::OVLiveControllerFactory2() : thirdPlatType(0) {}

OVLiveControllerFactory2::~OVLiveControllerFactory2() noexcept(false) = default;

void OVLiveControllerFactory2::setDeviceInfo(const DeviceInfoEx& info)
{
    OVMutexManager guard(mutex, unit, __LINE__);
    deviceInfo = info;
}

void OVLiveControllerFactory2::setDeviceAbility(const DeviceExAbility& ability)
{
    OVMutexManager guard(mutex, unit, __LINE__);
    deviceAbility = ability;
}

void OVLiveControllerFactory2::setThirdPlatType(int type)
{
    OVMutexManager guard(mutex, unit, __LINE__);
    thirdPlatType = type;
}

int OVLiveControllerFactory2::createMedia(const std::string& url, SafePointer<IRTSPController>& out,
                                          bool mediaInfoFlag)
{
    OVMutexManager guard(mutex, unit, __LINE__);
    return NewController<OVLiveController2>::in(out).initInstance(thirdPlatType, url, deviceInfo,
                                                                  deviceAbility, mediaInfoFlag);
}
