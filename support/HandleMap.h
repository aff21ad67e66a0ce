#pragma once
// Tested by tests/mediaurl/MediaUrlFactoryMap_test.cpp, tests/audioback/OVAudioBackMisuse_test.cpp.

#include "support/Export.h"

/// How entries leave a map of handles: the handle is taken out and its entry erased before its hold is let
/// go. A misuse that the release finds is thrown then, which it could not be from inside the map, whose
/// operations end the process instead.
class OV_INTERNAL HandleMap
{
public:
    /// Removes one entry and lets go of what it held.
    /// \throws OVRuntimeError as SafePointer::dec_reference() does; the entry is gone all the same
    template <class Map>
    static void erase(Map& map, typename Map::iterator place)
    {
        typename Map::mapped_type taken;
        taken.takeFrom(place->second);
        map.erase(place);
    }

    /// Removes the entries one after the other in the order of their keys.
    /// \throws OVRuntimeError as erase() does; the entries behind the one that failed stay
    template <class Map>
    static void clear(Map& map)
    {
        while (!map.empty())
        {
            erase(map, map.begin());
        }
    }
};
