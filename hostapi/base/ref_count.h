#pragma once

#include <atomic>

#include "hostapi/base/HostExport.h"

/// Count of the holders of one heap object, kept apart from the object and found by its address.
///
/// Owned by RefCountManager, which hands out one record per living object and recycles it after the object
/// is gone; the memory of a record stays valid for the life of the process, so that a late `unLock()` or a
/// `lock()` through a stale handle never touches freed memory.
///
/// Threads: any. `lock()` and `unLock()` bracket every other operation. The uncontended pair costs one
/// atomic exchange and one store; it makes no system call and looks nothing up.
class OV_HOST_API ref_count
{
public:
    ref_count() noexcept = default;
    ref_count(const ref_count&) = delete;
    ref_count& operator=(const ref_count&) = delete;

    /// Takes the record's own lock; not recursive.
    /// \returns 0 on success; non-zero, and the lock is not held, when the record no longer belongs to an
    /// object
    int lock() const
    {
        if (locked_.exchange(1, std::memory_order_acquire) != 0)
        {
            lockContended();
        }
        if (getPointer() == nullptr)
        {
            unLock();
            return recordRetired;
        }
        return 0;
    }

    /// Gives the lock back. Harmless on a record that was returned to the manager meanwhile.
    void unLock() const
    {
        locked_.store(0, std::memory_order_release);
    }

    /// Address of the object that the record belongs to now; null once it was given back. Caller holds the
    /// lock.
    void* getPointer() const
    {
        return pointer_.load(std::memory_order_relaxed);
    }

    /// Adds one holder. Caller holds the lock.
    /// \returns non-zero on success, 0 when the object is already being destroyed
    int inc_reference() const
    {
        if (holders_ <= 0)
        {
            return 0;
        }
        ++holders_;
        return 1;
    }

    /// Removes one holder. Caller holds the lock.
    /// \returns 0 when the last holder has left, non-zero otherwise
    int dec_reference()
    {
        if (holders_ > 1)
        {
            --holders_;
            return 1;
        }
        return releaseLast();
    }

private:
    friend class RefCountManager;
    friend class RefCountInspector;  // what a host's own tests look at; no code outside of tests defines it

    static constexpr int recordRetired = -1;

    /// Waits until the lock was taken. The host's: it decides how to wait.
    void lockContended() const;

    /// Settles the last counted holder against those that the manager counted meanwhile. The host's.
    /// \returns as dec_reference()
    int releaseLast();

    mutable std::atomic<int> locked_{0};
    mutable int holders_{0};  // guarded by the lock
    int retrieved_{0};        // holders added by the manager; guarded by the manager
    // Atomic for a stale handle alone, which may look while the manager gives the record to another object.
    std::atomic<void*> pointer_{nullptr};
    ref_count* next_{nullptr};  // the manager's chain
};
