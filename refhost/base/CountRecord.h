#pragma once
// Tested by tests/refhost/base/RefCountManager_test.cpp.

#include <atomic>

#include "hostapi/base/ref_count.h"

/// The state behind a ref_count; every ref_count of this host is a CountRecord. Owned by CountTable.
///
/// Threads: any. Uncontended, take() and leave() cost one atomic exchange and one store, without a system
/// call or a lookup.
class CountRecord : public ref_count
{
public:
    CountRecord() = default;

    /// As ref_count::lock().
    int take()
    {
        if (locked_.exchange(1, std::memory_order_acquire) != 0)
        {
            takeContended();
        }
        if (object() == nullptr)
        {
            leave();
            return retired;
        }
        return 0;
    }

    /// As ref_count::unLock().
    void leave()
    {
        locked_.store(0, std::memory_order_release);
    }

    /// As ref_count::getPointer().
    void* object() const
    {
        return object_.load(std::memory_order_relaxed);
    }

    /// As ref_count::inc_reference().
    int addHolder() const
    {
        if (holders_ <= 0)
        {
            return 0;
        }
        ++holders_;
        return 1;
    }

    /// Removes a holder unless it is the last one counted here. Requires: the lock is held.
    /// \returns false, with nothing changed, when only the table knows whether it is the last one of all
    bool removeHolder()
    {
        if (holders_ <= 1)
        {
            return false;
        }
        --holders_;
        return true;
    }

    /// Holders added under the record's lock.
    int holders() const
    {
        return holders_;
    }

    /// Holders that the table added without the record's lock since the last settle().
    int retrieved() const
    {
        return retrieved_;
    }

private:
    friend class CountTable;

    static constexpr int retired = -1;

    void takeContended();

    std::atomic<int> locked_{0};
    // 1: whoever gives a record back prepares it for its next object, with the first holder counted.
    mutable int holders_ = 1;  // guarded by the lock
    int retrieved_ = 0;        // guarded by the table
    // Atomic because a stale handle may read it while the table gives the record to another object.
    std::atomic<void*> object_{nullptr};
    CountRecord* next_ = nullptr;  // in the table's chain
};
