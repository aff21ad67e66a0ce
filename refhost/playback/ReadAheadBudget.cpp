#include "refhost/playback/ReadAheadBudget.h"

#include <algorithm>

namespace refhost
{

ReadAheadBudget::Share::Share(ReadAheadBudget& budget) : budget_(budget)
{
    budget_.shares_.fetch_add(1, std::memory_order_relaxed);
}

ReadAheadBudget::Share::~Share()
{
    budget_.shares_.fetch_sub(1, std::memory_order_relaxed);
}

std::size_t ReadAheadBudget::Share::bytes() const
{
    return std::max(budget_.total_ / budget_.shares_.load(std::memory_order_relaxed), minEach);
}

ReadAheadBudget& ReadAheadBudget::system()
{
    static ReadAheadBudget budget(16U << 20U);
    return budget;
}

ReadAheadBudget::ReadAheadBudget(std::size_t total) : total_(total) {}

}  // namespace refhost
