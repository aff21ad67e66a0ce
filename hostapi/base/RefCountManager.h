#pragma once

#include "hostapi/base/HostExport.h"
#include "hostapi/base/ref_count.h"

/// Process-wide table of count records, one per living object that is held by a handle.
///
/// Threads: any; lookups of different addresses do not queue behind one lock.
/// Life: made at the first call of getInstance() and never destroyed, because handles in static storage are
/// released after every other static object.
class OV_HOST_API RefCountManager
{
public:
    /// The one manager; never null, valid until the process ends.
    static RefCountManager* getInstance();

    /// Finds the record of `object`, making one where there is none, and counts one new holder in it; the
    /// caller does not increment. An address whose former object is just being deleted gets a fresh record.
    /// \param object    address of a heap object, not null
    /// \param typeName  run-time type name of the handle's type, for the host's diagnostics; not kept
    /// \returns never null
    ref_count* retrieveRefCount(void* object, const char* typeName);

    /// Takes a record back after its object was deleted. The caller still holds the record's lock and gives
    /// it back afterwards, so the record's memory stays valid.
    /// \param record    a record whose dec_reference() returned 0
    /// \param typeName  as for retrieveRefCount()
    void returnbackRefCount(ref_count* record, const char* typeName);

private:
    RefCountManager();
    ~RefCountManager();
    RefCountManager(const RefCountManager&) = delete;
    RefCountManager& operator=(const RefCountManager&) = delete;

    friend class ref_count;
    friend class RefCountInspector;  // what a host's own tests look at; no code outside of tests defines it

    struct Impl;
    Impl* impl_;
};
