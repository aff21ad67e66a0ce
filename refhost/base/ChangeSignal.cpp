#include "refhost/base/ChangeSignal.h"

#include <utility>

namespace refhost
{

ChangeSignal& ChangeSignal::instance()
{
    // Never destroyed: threads of the media libraries may announce until the end of the process.
    static ChangeSignal* const signal = new ChangeSignal;
    return *signal;
}

int ChangeSignal::subscribe(std::function<void()> changed)
{
    const MutexLock guard(listMutex_);
    functions_[++lastId_] = std::move(changed);
    return lastId_;
}

void ChangeSignal::unsubscribe(int id)
{
    {
        const MutexLock guard(listMutex_);
        functions_.erase(id);
    }
    // Waits for a call in progress, unless this call is made by it.
    const std::lock_guard<std::recursive_mutex> wait(callMutex_);
}

void ChangeSignal::announce()
{
    const std::lock_guard<std::recursive_mutex> guard(callMutex_);
    for (const int id : ids())
    {
        if (const std::function<void()> changed = find(id))
        {
            changed();
        }
    }
}

std::size_t ChangeSignal::subscriberCount() const
{
    const MutexLock guard(listMutex_);
    return functions_.size();
}

std::vector<int> ChangeSignal::ids() const
{
    const MutexLock guard(listMutex_);
    std::vector<int> all;
    for (const auto& [id, changed] : functions_)
    {
        all.push_back(id);
    }
    return all;
}

std::function<void()> ChangeSignal::find(int id) const
{
    const MutexLock guard(listMutex_);
    const auto found = functions_.find(id);
    return found == functions_.end() ? nullptr : found->second;
}

}  // namespace refhost
