#pragma once

#include <typeinfo>

#include "hostapi/base/RefCountManager.h"
#include "hostapi/base/ref_count.h"
#include "support/BaseSafePointer.h"
#include "support/Export.h"
#include "support/OVRuntimeError.h"

/// Counted handle to a heap object: the object dies with its last handle.
///
/// The count stands neither in the object nor in the handle but in a record that the host's RefCountManager
/// finds by the object's address; two handles made from one raw pointer therefore share one count. A handle
/// is empty (default-constructed), holding, or spent (it deleted the object).
///
/// Misuse throws OVRuntimeError. Most reports first print "SafePointer Report:" with the type name and the
/// message; the two "not valid pointer…" ones print nothing and leave the record locked, because a record
/// that belongs to another object must not be touched again. The "<T>" and "<U>" in messages are literal
/// text.
///
/// Threads: handles to one object may live in any threads; one handle object is used by one thread at a time.
/// \tparam T  a type with a virtual destructor. A handle to a base is made from one to a derived type only
///            where both have the same address (the base stands first).
template <class T>
class OV_EXPORT SafePointer : public BaseSafePointer
{
public:
    /// An empty handle. It may be assigned into, not copied.
    SafePointer() noexcept : pointer_(nullptr), count_(nullptr) {}

    /// Takes hold of `object`, a heap object that nothing else deletes.
    /// \throws OVRuntimeError when `object` is null
    explicit SafePointer(T* object) : pointer_(object), count_(nullptr)
    {
        if (object == nullptr)
        {
            report("Construct from NULL original pointer");
        }
        count_ = RefCountManager::getInstance()->retrieveRefCount(object, nameOf(typeid(T)));
    }

    /// One more handle to what `source` holds.
    /// \throws OVRuntimeError when `source` is empty or spent, or its record is not the object's any more
    SafePointer(const SafePointer& source) : BaseSafePointer(), pointer_(nullptr), count_(nullptr)
    {
        copyFrom(source, "Construct from NULL <T>pointer");
    }

    /// One more handle to what `source` holds, seen as its base. Throws as the copy does.
    template <class U>
    SafePointer(const SafePointer<U>& source) : pointer_(nullptr), count_(nullptr)
    {
        copyFrom(source, "Construct from NULL <U>pointer");
    }

    /// May throw OVRuntimeError, as dec_reference() does.
    ~SafePointer() noexcept(false) override
    {
        dec_reference();
    }

    /// Lets go of what this handle holds and takes one more hold of what `source` holds. Assigning a handle
    /// to itself changes nothing.
    ///
    /// Requires: `source` does not stand inside the object that this handle may be the last to hold (as in
    /// `node = node->next`): that object dies before the source is read. Copy such a source first, then
    /// assign the copy.
    ///
    /// \throws OVRuntimeError when `source` is empty (this handle keeps its hold), or when its record turns
    /// out to be unusable: the old hold is gone by then, deliberately, and this handle must not be used
    SafePointer& operator=(const SafePointer& source)
    {
        if (this == &source)
        {
            return *this;
        }
        if (source.pointer_ == nullptr)
        {
            report("Assigned NULL <T>pointer");
        }
        dec_reference();
        addHolder(source.pointer_, source.count_, typeid(T));
        pointer_ = source.pointer_;
        count_ = source.count_;
        return *this;
    }

    /// The object. \throws OVRuntimeError when the handle is empty or spent
    T* operator->() const
    {
        if (pointer_ == nullptr)
        {
            report("Use NULL pointer ->");
        }
        return pointer_;
    }

    /// True for an empty or spent handle.
    OV_INTERNAL bool isEmpty() const noexcept
    {
        return pointer_ == nullptr;
    }

    /// Releases this handle's hold; the last hold deletes the object and leaves the handle spent. The
    /// destructor and the assignment call it; called directly on a hold that is not the last, the handle
    /// keeps pointing at an object that it no longer holds and must not be used or destroyed.
    /// \throws OVRuntimeError when the record belongs to another object; the record stays locked
    void dec_reference()
    {
        if (pointer_ == nullptr)
        {
            return;
        }
        if (removeHolder(pointer_, count_))
        {
            delete pointer_;
            pointer_ = nullptr;
            giveBack(count_, typeid(T));
        }
        // Also a record just returned: the manager keeps its memory, and a locked record would stay so.
        count_->unLock();
    }

    /// Prints "SafePointer Report:", the type name and the message on standard output and throws the same
    /// text.
    [[noreturn]] static void report(const char* message)
    {
        reportMisuse(typeid(T), message);
    }

private:
    template <class U>
    friend class SafePointer;
    friend class HandleMap;

    template <class U>
    OV_INTERNAL void copyFrom(const SafePointer<U>& source, const char* messageWhenEmpty)
    {
        if (source.pointer_ == nullptr)
        {
            report(messageWhenEmpty);
        }
        addHolder(source.pointer_, source.count_, typeid(T));
        pointer_ = source.pointer_;
        count_ = source.count_;
    }

    /// Becomes what `source` was, which is empty then; this handle is empty before.
    OV_INTERNAL void takeFrom(SafePointer& source) noexcept
    {
        pointer_ = source.pointer_;
        count_ = source.count_;
        source.pointer_ = nullptr;
        source.count_ = nullptr;
    }

    T* pointer_;
    ref_count* count_;
};
