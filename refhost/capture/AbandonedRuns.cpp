#include "refhost/capture/AbandonedRuns.h"

namespace refhost
{

AbandonedRuns& AbandonedRuns::instance()
{
    static auto* const runs = new AbandonedRuns;
    return *runs;
}

void AbandonedRuns::change(const std::string& title, int by)
{
    const MutexLock guard(mutex_);
    if ((counts_[title] += by) == 0)
    {
        counts_.erase(title);
    }
}

int AbandonedRuns::of(const std::string& title) const
{
    const MutexLock guard(mutex_);
    const auto found = counts_.find(title);
    return found == counts_.end() ? 0 : found->second;
}

int AbandonedRuns::all() const
{
    const MutexLock guard(mutex_);
    int sum = 0;
    for (const auto& [title, count] : counts_)
    {
        sum += count;
    }
    return sum;
}

}  // namespace refhost
