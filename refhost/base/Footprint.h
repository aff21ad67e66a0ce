#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

namespace refhost
{

/// Where the memory stands that one of many objects will use: a loop over thousands of them reads ahead with
/// it while it works on the one before, instead of waiting for memory line after line.
///
/// Only addresses are kept and nothing is read from them, so what stands there may be gone by then. Ranges
/// beyond `maxRanges` and the lines of a range beyond `maxLines` are left out. Threads: add() and clear() one
/// at a time; prefetch() any, at the same time.
class Footprint
{
public:
    static constexpr std::size_t maxRanges = 5;
    static constexpr std::size_t maxLines = 15;
    static constexpr std::size_t lineSize = 64;

    /// Adds `size` bytes at `memory`.
    void add(const void* memory, std::size_t size);

    template <class Object>
    void add(const Object& object)
    {
        add(&object, sizeof object);
    }

    void clear();

    /// Has the processor fetch the memory.
    void prefetch() const
    {
        for (const std::atomic<const char*>& range : ranges_)
        {
            const char* line = range.load(std::memory_order_relaxed);
            for (std::size_t left = countOf(line); left > 0; --left, line += lineSize)
            {
                __builtin_prefetch(line);
            }
        }
    }

    /// Lines of the processor's cache that prefetch() fetches.
    std::size_t lines() const;

private:
    static std::size_t countOf(const char* range)
    {
        return reinterpret_cast<std::uintptr_t>(range) & (lineSize - 1);
    }

    // Somewhere in a range's first line: as far from its begin as the range has lines.
    std::array<std::atomic<const char*>, maxRanges> ranges_{};
};

}  // namespace refhost
