#include "mediaurl/MediaUrlFactoryMap.h"

#include "support/OVMutexManager.h"

namespace
{

const char* const unit = "MediaUrlFactoryMap";

}  // namespace

SafePointer<MediaUrlFactoryMap> MediaUrlFactoryMap::getInstance()
{
    static SafePointer<MediaUrlFactoryMap> instance(new MediaUrlFactoryMap);
    return instance;
}

MediaUrlFactoryMap::MediaUrlFactoryMap() = default;

MediaUrlFactoryMap::~MediaUrlFactoryMap() noexcept(false)
{
    OVMutexManager guard(mutex_, unit, __LINE__);
    factories_.clear();
}

// By value: hosts are linked against this signature.
// NOLINTNEXTLINE(performance-unnecessary-value-param)
void MediaUrlFactoryMap::registerFactory(int thirdPlatType, SafePointer<IMediaUrlFactory> factory)
{
    OVMutexManager guard(mutex_, unit, __LINE__);
    if (factories_.find(thirdPlatType) == factories_.end())
    {
        factories_.emplace(thirdPlatType, factory);
    }
}

void MediaUrlFactoryMap::unregisterFactory(int thirdPlatType)
{
    OVMutexManager guard(mutex_, unit, __LINE__);
    factories_.erase(thirdPlatType);
}

bool MediaUrlFactoryMap::lookup(int thirdPlatType, SafePointer<IMediaUrlFactory>& factory)
{
    OVMutexManager guard(mutex_, unit, __LINE__);
    const auto found = factories_.find(thirdPlatType);
    if (found == factories_.end())
    {
        return false;
    }
    factory = found->second;
    return true;
}

int MediaUrlFactoryMap::getFactoryNames(std::vector<int>& names)
{
    OVMutexManager guard(mutex_, unit, __LINE__);
    for (const auto& entry : factories_)
    {
        names.push_back(entry.first);
    }
    return static_cast<int>(factories_.size());
}
