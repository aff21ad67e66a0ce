#include "live/OVLiveControllerFactory.h"

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
    OVLiveController* const controller = new OVLiveController;
    // Before it is initialised, deliberately: a controller that fails stays with the caller, who drops it.
    out = SafePointer<IRTSPController>(controller);
    return controller->initInstance(thirdPlatType_, url, deviceInfo_, deviceAbility_, mediaInfoFlag);
}
