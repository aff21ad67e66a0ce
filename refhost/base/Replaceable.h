#pragma once
// Tested by tests/refhost/rtsp/session/RtspServices_test.cpp.

#include <memory>
#include <utility>

#include "refhost/base/Mutex.h"

namespace refhost
{

/// A constant value that another one replaces while readers may still use the former. Threads: any; one lock of its
/// own, held for the copy of a pointer.
template <typename Value>
class Replaceable
{
public:
    explicit Replaceable(Value value) : value_(std::make_shared<const Value>(std::move(value))) {}

    /// The present value; never null. It does not change while it is held.
    std::shared_ptr<const Value> get() const
    {
        const MutexLock guard(mutex_);
        return value_;
    }

    /// From now on get() returns this one.
    void replace(Value value)
    {
        auto next = std::make_shared<const Value>(std::move(value));
        const MutexLock guard(mutex_);
        value_.swap(next);
    }

private:
    mutable Mutex mutex_;
    std::shared_ptr<const Value> value_ OV_GUARDED_BY(mutex_);
};

}  // namespace refhost
