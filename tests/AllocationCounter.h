#pragma once

#include <cstddef>

/// Counts how often the calling thread allocates with operator new while the counter lives.
class AllocationCounter
{
public:
    AllocationCounter();
    std::size_t count() const;

    /// Bytes of memory that all threads hold by operator new, with what the allocator adds to each block.
    static std::size_t held();

private:
    std::size_t before_;
};
