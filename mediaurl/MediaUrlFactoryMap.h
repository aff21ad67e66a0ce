#pragma once

#include <map>
#include <vector>

#include "hostapi/base/OVMutex.h"
#include "mediaurl/IMediaUrlFactory.h"
#include "support/Export.h"
#include "support/SafePointer.h"

/// Process-wide table of codec factories, one per platform type number. The host fills it; controllers look
/// up.
///
/// Threads: any; every operation, including the destructor, holds the table's own lock for its whole body. The
/// lock is never held while a caller uses a factory. Life: created by the first getInstance(), destroyed at
/// process exit or with the last handle that outlives it.
class OV_EXPORT MediaUrlFactoryMap
{
public:
    /// One more handle to the one table; never empty.
    static SafePointer<MediaUrlFactoryMap> getInstance();

    /// Releases every factory.
    /// \throws OVRuntimeError when a factory's record belongs to another object; the factories after it are
    ///         released nevertheless, without the lock
    virtual ~MediaUrlFactoryMap() noexcept(false);
    MediaUrlFactoryMap(const MediaUrlFactoryMap&) = delete;
    MediaUrlFactoryMap& operator=(const MediaUrlFactoryMap&) = delete;

    /// Registers `factory` under `thirdPlatType`. The first registration of a number stays; a further one is
    /// silently ignored.
    void registerFactory(int thirdPlatType, SafePointer<IMediaUrlFactory> factory);

    /// Removes the factory of `thirdPlatType`; does nothing when there is none. Other handles to the factory
    /// stay valid.
    /// \throws OVRuntimeError when the factory's record belongs to another object; the number is free
    ///         nevertheless
    void unregisterFactory(int thirdPlatType);

    /// Finds the factory of `thirdPlatType`.
    /// \param[out] factory  set to one more handle to the factory when found, otherwise unchanged
    /// \returns true when found
    bool lookup(int thirdPlatType, SafePointer<IMediaUrlFactory>& factory);

    /// Appends every registered number to `names` in ascending order.
    /// \returns how many factories are registered
    int getFactoryNames(std::vector<int>& names);

private:
    MediaUrlFactoryMap();

    std::map<int, SafePointer<IMediaUrlFactory>> factories;
    OVMutex mutex;
};
