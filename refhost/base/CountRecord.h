#pragma once
// Tested by tests/refhost/base/RefCountManager_test.cpp.

#include <atomic>

#include "hostapi/base/ref_count.h"

/// What a count record of this host consists of; every ref_count is one of these. The operations of ref_count
/// work on it, and CountTable, which owns it.
///
/// Threads: any. The uncontended take() and leave() cost one atomic exchange and one store; they make no
/// system call and look nothing up.
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

    /// Removes a holder that is not the last one counted here. Requires: the lock is held.
    /// \returns false, and nothing changed, when only the table can tell whether it is the last one of all
    bool removeHolder()
    {
        if (holders_ <= 1)
        {
            return false;
        }
        --holders_;
        return true;
    }

    /// Holders that were added under the record's lock.
    int holders() const
    {
        return holders_;
    }

    /// Holders that the table added without the record's lock, since the last settlement.
    int retrieved() const
    {
        return retrieved_;
    }

private:
    friend class CountTable;

    static constexpr int retired = -1;

    void takeContended();

    std::atomic<int> locked_{0};
    // A record is made ready for its next object by the one that gives it back: it counts that holder
    // already.
    mutable int holders_ = 1;  // guarded by the lock
    int retrieved_ = 0;        // guarded by the table
    // Atomic for a stale handle alone, which may look while the table gives the record to another object.
    std::atomic<void*> object_{nullptr};
    CountRecord* next_ = nullptr;  // the table's chain
};
