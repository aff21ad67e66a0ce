// Instantiations of the codecs' handles, for hosts to bind to.
#include "mediaurl/IMediaUrl.h"
#include "mediaurl/IMediaUrlFactory.h"
#include "mediaurl/MediaUrlFactoryMap.h"
#include "support/SafePointer.h"

template class SafePointer<IMediaUrl>;
template class SafePointer<IMediaUrlFactory>;
template class SafePointer<MediaUrlFactoryMap>;
