#pragma once
// Tested by tests/mediaurl/MediaUrlFactoryMap_test.cpp.

#include "mediaurl/IMediaUrl.h"
#include "support/Export.h"
#include "support/SafePointer.h"

/// Makes URL codecs of one kind. Registered by the host in MediaUrlFactoryMap.
///
/// Life: until its last handle goes. The registry may hold that one and let go of it with its lock held, so a
/// factory's destructor must not call MediaUrlFactoryMap: it would wait for that lock for ever.
/// Threads: any; an implementation does its own locking. The destructor runs on the thread that lets go last.
class OV_EXPORT IMediaUrlFactory
{
public:
    virtual ~IMediaUrlFactory() noexcept(false);

    /// \param[out] codec  a handle to a new codec on success; it lets go of what it held before
    /// \returns 0; any other code when no codec was made, and the caller gives up its request
    virtual int createMediaUrl(SafePointer<IMediaUrl>& codec) = 0;
};
