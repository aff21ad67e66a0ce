#pragma once
// Tested by tests/mediaurl/MediaUrlFactoryMap_test.cpp, tests/audioback/OVAudioBackMisuse_test.cpp.

#include "support/Export.h"

/// Removes entries from maps of handles: moves the handle out and erases its entry before releasing the hold.
/// A misuse found by the release can be thrown then; thrown inside the map's own operations it would end the
/// process.
class OV_INTERNAL HandleMap
{
public:
    /// Removes one entry and releases its hold.
    /// \throws OVRuntimeError as SafePointer::dec_reference() does; the entry is removed nevertheless
    template <class Map>
    static void erase(Map& map, typename Map::iterator place)
    {
        typename Map::mapped_type taken;
        taken.takeFrom(place->second);
        map.erase(place);
    }

    /// Removes all entries in the order of their keys.
    /// \throws OVRuntimeError as erase() does; the entries after the failed one stay
    template <class Map>
    static void clear(Map& map)
    {
        while (!map.empty())
        {
            erase(map, map.begin());
        }
    }
};
