#pragma once
// Tested by tests/support/function_test.cpp.

#include "support/Export.h"

/// Base of every callable object: something that is invoked without arguments and returns an R.
/// Held through SafePointer<function_obj_base<R>>.
template <class R>
class OV_EXPORT function_obj_base
{
public:
    virtual ~function_obj_base() noexcept(false) {}

    /// Invokes the callable and returns its result unchanged.
    virtual R operator()() = 0;
};

/// A member function without arguments bound to one object. A plain value; it does not own the object, which
/// must outlive every invocation.
template <class R, class C>
struct OV_EXPORT bind_funcobj0
{
    /// What is called.
    R (C::*member)();
    /// On which object; not owned.
    C* object;
};

/// A callable object around a CALL: a free function, or a bound member function.
template <class R, class CALL>
class function_obj;

/// Wraps a free function.
template <class R>
class OV_EXPORT function_obj<R, R (*)()> : public function_obj_base<R>
{
public:
    /// \param target  never null
    explicit function_obj(R (*target)()) : target_(target) {}
    ~function_obj() noexcept(false) override {}

    R operator()() override
    {
        return target_();
    }

private:
    R (*target_)();
};

/// Wraps a member function bound to an object; a virtual one is dispatched on the object's dynamic type.
template <class R, class C>
class OV_EXPORT function_obj<R, bind_funcobj0<R, C>> : public function_obj_base<R>
{
public:
    /// \param target  copied; neither of its pointers is null
    explicit function_obj(const bind_funcobj0<R, C>& target) : target_(target) {}
    ~function_obj() noexcept(false) override {}

    R operator()() override
    {
        return (target_.object->*target_.member)();
    }

private:
    bind_funcobj0<R, C> target_;
};
