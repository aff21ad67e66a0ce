#include "live/OVLiveControllerFactory2.h"

#include "live/NewController.h"
#include "live/OVLiveController2.h"
#include "support/OVMutexManager.h"

namespace
{

const char* const unit = "OVLiveControllerFactory2";

}  // namespace

OVLiveControllerFactory2::OVLiveControllerFactory2() : thirdPlatType_(0) {}

OVLiveControllerFactory2::~OVLiveControllerFactory2() noexcept(false) = default;

void OVLiveControllerFactory2::setDeviceInfo(const DeviceInfoEx& deviceInfo)
{
    OVMutexManager guard(mutex_, unit, __LINE__);
    deviceInfo_ = deviceInfo;
}

void OVLiveControllerFactory2::setDeviceAbility(const DeviceExAbility& deviceAbility)
{
    OVMutexManager guard(mutex_, unit, __LINE__);
    deviceAbility_ = deviceAbility;
}

void OVLiveControllerFactory2::setThirdPlatType(int thirdPlatType)
{
    OVMutexManager guard(mutex_, unit, __LINE__);
    thirdPlatType_ = thirdPlatType;
}

int OVLiveControllerFactory2::createMedia(const std::string& url, SafePointer<IRTSPController>& out,
                                          bool mediaInfoFlag)
{
    OVMutexManager guard(mutex_, unit, __LINE__);
    return NewController<OVLiveController2>::in(out).initInstance(thirdPlatType_, url, deviceInfo_,
                                                                  deviceAbility_, mediaInfoFlag);
}
