#pragma once

#include "support/Export.h"
#include "support/SafePointer.h"
#include "support/function_obj.h"

/// A copyable callable without arguments. Copies share one callable object, which is deleted with the last.
template <class R>
class OV_EXPORT function
{
public:
    /// Takes ownership of a new callable object.
    /// \throws OVRuntimeError ("Construct from NULL original pointer") when `object` is null
    explicit function(function_obj_base<R>* object) : object_(object) {}

    /// Another handle to the same callable object.
    function(const function& other) : object_(other.object_) {}
    /// Releases its callable object and takes a handle to the other's.
    function& operator=(const function& other)
    {
        object_ = other.object_;
        return *this;
    }

    virtual ~function() noexcept(false) {}

    /// Invokes the callable object and returns its result unchanged.
    R operator()()
    {
        return (*object_.operator->())();
    }

private:
    SafePointer<function_obj_base<R>> object_;
};
