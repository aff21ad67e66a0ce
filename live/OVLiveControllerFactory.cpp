#include "live/OVLiveControllerFactory.h"

#include "live/NewController.h"
#include "live/OVLiveController.h"
#include "support/OVMutexManager.h"

namespace
{

const char* const unit = "OVLiveControllerFactory";

}  // namespace

OVLiveControllerFactory::OVLiveControllerFactory() : thirdPlatType_(0) {}

OVLiveControllerFactory::~OVLiveControllerFactory() noexcept(false) = default;

void OVLiveControllerFactory::setDeviceInfo(const DeviceInfoEx& deviceInfo)
{
    OVMutexManager guard(mutex_, unit, __LINE__);
    deviceInfo_ = deviceInfo;
}

void OVLiveControllerFactory::setDeviceAbility(const DeviceExAbility& deviceAbility)
{
    OVMutexManager guard(mutex_, unit, __LINE__);
    deviceAbility_ = deviceAbility;
}

void OVLiveControllerFactory::setThirdPlatType(int thirdPlatType)
{
    OVMutexManager guard(mutex_, unit, __LINE__);
    thirdPlatType_ = thirdPlatType;
}

int OVLiveControllerFactory::createMedia(const std::string& url, SafePointer<IRTSPController>& out,
                                         bool mediaInfoFlag)
{
    OVMutexManager guard(mutex_, unit, __LINE__);
    return NewController<OVLiveController>::in(out).initInstance(thirdPlatType_, url, deviceInfo_,
                                                                 deviceAbility_, mediaInfoFlag);
}
