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
/// Threads: any; every operation, the destructor too, holds the table's own lock for its whole body. The lock
/// is never held while a caller uses a factory. Life: made at the first getInstance(), gone at process exit
/// or with a handle that outlives it.
class OV_EXPORT MediaUrlFactoryMap
{
public:
    /// One more handle to the one table; never empty.
    static SafePointer<MediaUrlFactoryMap> getInstance();

    /// Lets every factory go. \throws OVRuntimeError when a factory's record turns out to be another
    /// object's: the factories behind it are let go all the same, without the lock
    virtual ~MediaUrlFactoryMap() noexcept(false);
    MediaUrlFactoryMap(const MediaUrlFactoryMap&) = delete;
    MediaUrlFactoryMap& operator=(const MediaUrlFactoryMap&) = delete;

    /// Registers `factory` under `thirdPlatType`. The first registration of a number stays: another one is
    /// dropped without notice.
    void registerFactory(int thirdPlatType, SafePointer<IMediaUrlFactory> factory);

    /// Removes the factory of `thirdPlatType`; nothing happens when there is none. Who holds the factory
    /// keeps it.
    /// \throws OVRuntimeError when the factory's record turns out to be another object's; the number is free
    ///         all the same
    void unregisterFactory(int thirdPlatType);

    /// Finds the factory of `thirdPlatType`.
    /// \param[out] factory  set to one more handle to the factory when found, otherwise left as it was
    /// \returns true when found
    bool lookup(int thirdPlatType, SafePointer<IMediaUrlFactory>& factory);

    /// Appends every registered number in ascending order to `names`, behind what is there already.
    /// \returns how many factories are registered
    int getFactoryNames(std::vector<int>& names);

private:
    MediaUrlFactoryMap();

    std::map<int, SafePointer<IMediaUrlFactory>> factories;
    OVMutex mutex;
};
