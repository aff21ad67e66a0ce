#pragma once

#include "hostapi/base/ref_count.h"
#include "support/SafePointer.h"
#include "tests/fakehost/RefCountInspector.h"

/// Makes the count record of an object belong to another one, as overwritten memory would: the release of the
/// object's handle throws then. Restored by the destructor.
class ForeignRecord
{
public:
    /// \param object  held by handles; must outlive this one
    explicit ForeignRecord(void* object) : object_(object), record_(RefCountInspector::recordOf(object))
    {
        RefCountInspector::setPointer(record_, &other_);
    }

    ~ForeignRecord()
    {
        record_->unLock();
        RefCountInspector::setPointer(record_, object_);
    }

    ForeignRecord(const ForeignRecord&) = delete;
    ForeignRecord& operator=(const ForeignRecord&) = delete;

    bool isLocked() const
    {
        return RefCountInspector::isLocked(record_);
    }

    /// Deletes an object whose handles are gone without having released it. Its record is mended.
    template <class T>
    static void releaseAbandoned(T* object)
    {
        RefCountInspector::setHolders(RefCountInspector::recordOf(object), 0);
        const SafePointer<T> last(object);
    }

private:
    void* object_;
    ref_count* record_;
    int other_ = 0;
};
