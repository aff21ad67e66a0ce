#pragma once

#include "hostapi/base/HostExport.h"
#include "hostapi/base/ref_count.h"

/// Process-wide table of count records, one per living object that is held by a handle.
///
/// Where the table is kept is the host's affair, as with a record: getInstance() may return an object of a
/// class that the host derives from this one.
///
/// Threads: any. Lookups of different addresses should not queue behind one lock: each handle that is made
/// from a raw pointer takes one. Life: made at the first call of getInstance() and never destroyed, because
/// handles in static storage are released after every other static object.
class OV_HOST_API RefCountManager
{
public:
    RefCountManager(const RefCountManager&) = delete;
    RefCountManager& operator=(const RefCountManager&) = delete;

    /// The one manager; never null, valid until the process ends.
    static RefCountManager* getInstance();

    /// Finds the record of `object`, making one where there is none, and counts one new holder in it; the
    /// caller does not increment. An address whose former object is just being deleted gets another record.
    /// Does not wait for a record's lock.
    /// \param object    address of a heap object, not null; owned by its handles
    /// \param typeName  run-time type name of the handle's type, for the host's diagnostics; not kept
    /// \returns never null; the manager's own
    ref_count* retrieveRefCount(void* object, const char* typeName);

    /// Takes a record back after its object was deleted. The caller still holds the record's lock and gives
    /// it back afterwards, so the record's memory stays valid; from then on its lock() fails until it serves
    /// another object.
    /// \param record    a record whose dec_reference() returned 0
    /// \param typeName  as for retrieveRefCount()
    void returnbackRefCount(ref_count* record, const char* typeName);

protected:
    RefCountManager() = default;
    ~RefCountManager() = default;
};
