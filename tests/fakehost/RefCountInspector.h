#pragma once

#include <cstddef>

class ref_count;

/// Access of tests to the fake host's count records, to inspect and to corrupt them.
class RefCountInspector
{
public:
    /// The record of a living object; null when no handle holds the object.
    static ref_count* recordOf(const void* object);
    /// How many holders the object has; 0 when no handle holds it.
    static int holders(const void* object);
    /// How many objects are held by handles now.
    static std::size_t recordsInUse();

    /// Makes the record claim another object. Put it back before a handle that must survive is released.
    static void setPointer(ref_count* record, void* object);
    /// Sets the count itself; 0 is what a record holds while its object is being destroyed.
    static void setHolders(ref_count* record, int holders);
    /// True while somebody holds the record's lock.
    static bool isLocked(const ref_count* record);

    /// Makes the next retrieval find no record at all, which a real host never does.
    static void returnNullOnce();

    /// The type name that the last retrieval, and the last return, passed.
    static const char* lastRetrievedType();
    static const char* lastReturnedType();
};
