#include "refhost/description/MulticastMediaUrlFactory.h"

#include "refhost/description/MulticastMediaUrl.h"

namespace refhost
{

int MulticastMediaUrlFactory::createMediaUrl(SafePointer<IMediaUrl>& codec)
{
    codec = SafePointer<IMediaUrl>(new MulticastMediaUrl);
    return 0;
}

}  // namespace refhost
