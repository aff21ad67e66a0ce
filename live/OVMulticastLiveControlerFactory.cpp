#include "live/OVMulticastLiveControlerFactory.h"

#include "live/NewController.h"
#include "live/OVMulticastLiveController.h"
#include "support/OVMutexManager.h"

namespace
{

const char* const unit = "OVMulticastLiveControlerFactory";

}  // namespace

OVMulticastLiveControlerFactory::OVMulticastLiveControlerFactory() : thirdPlatType_(0)
{
    // The unicast factories do without; hosts see the difference.
    mutex_.Init();
}

OVMulticastLiveControlerFactory::~OVMulticastLiveControlerFactory() noexcept(false) = default;

void OVMulticastLiveControlerFactory::setDeviceInfo(const DeviceInfoEx& deviceInfo)
{
    OVMutexManager guard(mutex_, unit, __LINE__);
    deviceInfo_ = deviceInfo;
}

void OVMulticastLiveControlerFactory::setDeviceAbility(const DeviceExAbility& deviceAbility)
{
    OVMutexManager guard(mutex_, unit, __LINE__);
    deviceAbility_ = deviceAbility;
}

void OVMulticastLiveControlerFactory::setThirdPlatType(int thirdPlatType)
{
    OVMutexManager guard(mutex_, unit, __LINE__);
    thirdPlatType_ = thirdPlatType;
}

int OVMulticastLiveControlerFactory::createMedia(const std::string& url, SafePointer<IRTSPController>& out,
                                                 bool mediaInfoFlag)
{
    OVMutexManager guard(mutex_, unit, __LINE__);
    return NewController<OVMulticastLiveController>::in(out).initInstance(thirdPlatType_, url, deviceInfo_,
                                                                          deviceAbility_, mediaInfoFlag);
}
