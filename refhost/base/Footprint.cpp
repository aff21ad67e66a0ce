#include "refhost/base/Footprint.h"

#include <algorithm>

namespace refhost
{

void Footprint::add(const void* memory, std::size_t size)
{
    const auto* const begin = static_cast<const char*>(memory);
    const std::size_t before = reinterpret_cast<std::uintptr_t>(memory) & (lineSize - 1);
    const std::size_t count = std::min((before + size + lineSize - 1) / lineSize, maxLines);
    const auto unused =
        std::find_if(ranges_.begin(), ranges_.end(),
                     [](const auto& range) { return range.load(std::memory_order_relaxed) == nullptr; });
    if (size > 0 && unused != ranges_.end())
    {
        unused->store(begin - before + count, std::memory_order_relaxed);
    }
}

void Footprint::clear()
{
    for (std::atomic<const char*>& range : ranges_)
    {
        range.store(nullptr, std::memory_order_relaxed);
    }
}

std::size_t Footprint::lines() const
{
    std::size_t lines = 0;
    for (const std::atomic<const char*>& range : ranges_)
    {
        lines += countOf(range.load(std::memory_order_relaxed));
    }
    return lines;
}

}  // namespace refhost
