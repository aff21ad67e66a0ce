#include "mediaurl/MediaUrlFactoryMap.h"

#include "support/HandleMap.h"
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
    OVMutexManager guard(mutex, unit, __LINE__);
    HandleMap::clear(factories);
}

// By value: hosts are linked against this signature.
// NOLINTNEXTLINE(performance-unnecessary-value-param)
void MediaUrlFactoryMap::registerFactory(int thirdPlatType, SafePointer<IMediaUrlFactory> factory)
{
    OVMutexManager guard(mutex, unit, __LINE__);
    if (factories.find(thirdPlatType) == factories.end())
    {
        factories.emplace(thirdPlatType, factory);
    }
}

void MediaUrlFactoryMap::unregisterFactory(int thirdPlatType)
{
    OVMutexManager guard(mutex, unit, __LINE__);
    const auto found = factories.find(thirdPlatType);
    if (found != factories.end())
    {
        HandleMap::erase(factories, found);
    }
}

bool MediaUrlFactoryMap::lookup(int thirdPlatType, SafePointer<IMediaUrlFactory>& factory)
{
    OVMutexManager guard(mutex, unit, __LINE__);
    const auto found = factories.find(thirdPlatType);
    if (found == factories.end())
    {
        return false;
    }
    factory = found->second;
    return true;
}

int MediaUrlFactoryMap::getFactoryNames(std::vector<int>& names)
{
    OVMutexManager guard(mutex, unit, __LINE__);
    for (const auto& entry : factories)
    {
        names.push_back(entry.first);
    }
    return static_cast<int>(factories.size());
}
