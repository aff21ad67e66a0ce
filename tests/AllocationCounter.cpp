#include "tests/AllocationCounter.h"

#include <cstdlib>
#include <new>

namespace
{

thread_local std::size_t allocations = 0;

void* allocate(std::size_t size)
{
    ++allocations;
    void* const memory = std::malloc(size == 0 ? 1 : size);
    if (memory == nullptr)
    {
        throw std::bad_alloc();
    }
    return memory;
}

}  // namespace

AllocationCounter::AllocationCounter() : before_(allocations) {}

std::size_t AllocationCounter::count() const
{
    return allocations - before_;
}

// The dynamic linker gives the library these, too.
void* operator new(std::size_t size)
{
    return allocate(size);
}

void* operator new[](std::size_t size)
{
    return allocate(size);
}

void operator delete(void* memory) noexcept
{
    std::free(memory);
}

void operator delete[](void* memory) noexcept
{
    std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept
{
    std::free(memory);
}

void operator delete[](void* memory, std::size_t) noexcept
{
    std::free(memory);
}
