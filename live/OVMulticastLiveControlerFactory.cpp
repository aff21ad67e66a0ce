#include "live/OVMulticastLiveControlerFactory.h"

#include "live/NewController.h"
#include "live/OVMulticastLiveController.h"
#include "support/OVMutexManager.h"

namespace
{

const char* const unit = "OVMulticastLiveControlerFactory";

}  // namespace

OVMulticastLiveControlerFactory::OVMulticastLiveControlerFactory() : thirdPlatType(0)
{
    // Deliberate: the unicast factories do not do this, and hosts can observe the difference.
    mutex.Init();
}

OVMulticastLiveControlerFactory::~OVMulticastLiveControlerFactory() noexcept(false) = default;

void OVMulticastLiveControlerFactory::setDeviceInfo(const DeviceInfoEx& info)
{
    OVMutexManager guard(mutex, unit, __LINE__);
    deviceInfo = info;
}

void OVMulticastLiveControlerFactory::setDeviceAbility(const DeviceExAbility& ability)
{
    OVMutexManager guard(mutex, unit, __LINE__);
    deviceAbility = ability;
}

void OVMulticastLiveControlerFactory::setThirdPlatType(int type)
{
    OVMutexManager guard(mutex, unit, __LINE__);
    thirdPlatType = type;
}

int OVMulticastLiveControlerFactory::createMedia(const std::string& url, SafePointer<IRTSPController>& out,
                                                 bool mediaInfoFlag)
{
    OVMutexManager guard(mutex, unit, __LINE__);
    return NewController<OVMulticastLiveController>::in(out).initInstance(thirdPlatType, url, deviceInfo,
                                                                          deviceAbility, mediaInfoFlag);
}
