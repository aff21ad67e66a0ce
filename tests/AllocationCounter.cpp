#include "tests/AllocationCounter.h"

#include <malloc.h>

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <new>

namespace
{

thread_local std::size_t allocations = 0;
std::atomic<std::size_t> heldBytes{0};

std::size_t sizeOf(void* memory)
{
    constexpr std::size_t header = sizeof(std::size_t);  // of the allocator's
    return memory == nullptr ? 0 : malloc_usable_size(memory) + header;
}

void* allocate(std::size_t size, std::size_t alignment = alignof(std::max_align_t))
{
    ++allocations;
    // A multiple of the alignment, as std::aligned_alloc() wants it.
    const std::size_t room = size == 0 ? alignment : (size + alignment - 1) / alignment * alignment;
    void* const memory = alignment > alignof(std::max_align_t) ? std::aligned_alloc(alignment, room)
                                                               : std::malloc(size == 0 ? 1 : size);
    if (memory == nullptr)
    {
        throw std::bad_alloc();
    }
    heldBytes.fetch_add(sizeOf(memory), std::memory_order_relaxed);
    return memory;
}

void release(void* memory) noexcept
{
    heldBytes.fetch_sub(sizeOf(memory), std::memory_order_relaxed);
    std::free(memory);
}

}  // namespace

AllocationCounter::AllocationCounter() : before_(allocations) {}

std::size_t AllocationCounter::count() const
{
    return allocations - before_;
}

std::size_t AllocationCounter::held()
{
    return heldBytes.load(std::memory_order_relaxed);
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

void* operator new(std::size_t size, std::align_val_t alignment)
{
    return allocate(size, static_cast<std::size_t>(alignment));
}

void* operator new[](std::size_t size, std::align_val_t alignment)
{
    return allocate(size, static_cast<std::size_t>(alignment));
}

void operator delete(void* memory) noexcept
{
    release(memory);
}

void operator delete[](void* memory) noexcept
{
    release(memory);
}

void operator delete(void* memory, std::size_t) noexcept
{
    release(memory);
}

void operator delete[](void* memory, std::size_t) noexcept
{
    release(memory);
}

void operator delete(void* memory, std::align_val_t) noexcept
{
    release(memory);
}

void operator delete[](void* memory, std::align_val_t) noexcept
{
    release(memory);
}

void operator delete(void* memory, std::size_t, std::align_val_t) noexcept
{
    release(memory);
}

void operator delete[](void* memory, std::size_t, std::align_val_t) noexcept
{
    release(memory);
}
