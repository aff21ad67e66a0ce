#pragma once
// Tested by tests/refhost/recording/EventGate_test.cpp.

#include <atomic>
#include <cstddef>

namespace refhost
{

/// A bound of the memory that several share. Threads: any; no lock.
class ByteBudget
{
public:
    /// \param max  bytes
    explicit ByteBudget(std::size_t max) : max_(max) {}

    /// Counts so many bytes, up to release(), unless they are too many.
    bool reserve(std::size_t bytes)
    {
        if (used_ + bytes > max_)
        {
            return false;
        }
        used_ += bytes;
        return true;
    }
    void release(std::size_t bytes)
    {
        used_ -= bytes;
    }

    /// Bytes that are counted.
    std::size_t used() const
    {
        return used_;
    }

private:
    const std::size_t max_;
    std::atomic<std::size_t> used_{0};  ///< two that reserve at once may exceed the bound by a unit each
};

}  // namespace refhost
