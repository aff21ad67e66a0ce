#pragma once

#include <cstddef>

/// Counts what the calling thread allocates with operator new while the counter lives.
class AllocationCounter
{
public:
    AllocationCounter();
    std::size_t count() const;

private:
    std::size_t before_;
};
