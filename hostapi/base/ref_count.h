#pragma once

#include "hostapi/base/HostExport.h"

/// Count of the holders of one heap object, kept apart from the object and found by its address.
///
/// Made and owned by RefCountManager, which hands out one record per living object and recycles it after the
/// object is gone. A record's memory stays valid for the life of the process, so that a late unLock() or a
/// lock() through a stale handle never touches freed memory.
///
/// What a record consists of is the host's affair: it derives its own class from this one, keeps its state
/// there and lets these operations work on it. The library only passes pointers on and calls the five; every
/// copy and every release of a handle calls four of them, so they should cost next to nothing where nobody
/// waits.
///
/// Threads: any. lock() and unLock() bracket every other operation.
class OV_HOST_API ref_count
{
public:
    ref_count(const ref_count&) = delete;
    ref_count& operator=(const ref_count&) = delete;

    /// Waits for the record's own lock and takes it; not recursive. It is held for a few instructions, except
    /// by the release of a last holder, which holds it while the object is destroyed.
    /// \returns 0 on success; non-zero, and the lock is not held, when the record no longer belongs to an
    ///          object
    int lock();

    /// Gives the lock back; on the thread that took it. Harmless on a record that was returned to the manager
    /// meanwhile.
    void unLock();

    /// Requires: the lock is held.
    /// \returns the address of the object that the record belongs to now; null once it was given back
    void* getPointer();

    /// Adds one holder. Requires: the lock is held.
    /// \returns non-zero on success, 0 when the object is already being destroyed
    int inc_reference() const;

    /// Removes one holder. Requires: the lock is held. Once the last holder has left, no holder can be added
    /// any more and a handle to a new object at the same address gets another record; the caller destroys the
    /// object and gives the record back to the manager.
    /// \returns 0 when the last holder has left, non-zero otherwise
    int dec_reference();

protected:
    ref_count() = default;
    ~ref_count() = default;
};
