#include "mediaurl/OrvaneMediaUrlFactory.h"

#include "mediaurl/OrvaneMediaUrl.h"
#include "support/OVMutexManager.h"
#include "support/StatusCode.h"

OrvaneMediaUrlFactory::OrvaneMediaUrlFactory() = default;

OrvaneMediaUrlFactory::~OrvaneMediaUrlFactory() noexcept(false) = default;

int OrvaneMediaUrlFactory::createMediaUrl(SafePointer<IMediaUrl>& codec)
{
    OVMutexManager guard(mutex, "OrvaneMediaUrlFactory", __LINE__);
    codec = SafePointer<IMediaUrl>(new OrvaneMediaUrl);
    return statusSuccess;
}
