#pragma once
// Tested by tests/mediaurl/MediaUrlFactoryMap_test.cpp.

#include "mediaurl/IMediaUrl.h"
#include "support/Export.h"
#include "support/SafePointer.h"

/// Creates URL codecs of one kind. Registered by the host in MediaUrlFactoryMap.
///
/// Life: until its last handle is released. The registry may release it with the registry's lock held, so a
/// factory's destructor must not call MediaUrlFactoryMap: it would deadlock.
/// Threads: any; an implementation does its own locking. The destructor runs on the thread that releases the
/// last handle.
class OV_EXPORT IMediaUrlFactory
{
public:
    virtual ~IMediaUrlFactory() noexcept(false);

    /// \param[out] codec  a handle to a new codec on success; its previous hold is released
    /// \returns 0; any other code when no codec was created, which ends the caller's request
    virtual int createMediaUrl(SafePointer<IMediaUrl>& codec) = 0;
};
