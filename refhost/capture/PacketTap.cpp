#include "refhost/capture/PacketTap.h"

#include <algorithm>
#include <utility>

namespace refhost
{

void PacketTap::add(std::shared_ptr<AccessUnitSink> sink)
{
    auto entry = std::make_shared<Entry>();
    entry->sink = std::move(sink);
    const MutexLock guard(listMutex_);
    auto changed = std::make_shared<Entries>(*entries_);
    changed->push_back(std::move(entry));
    entries_ = std::move(changed);
}

bool PacketTap::remove(const AccessUnitSink* sink)
{
    std::shared_ptr<Entry> removed;
    {
        const MutexLock guard(listMutex_);
        auto changed = std::make_shared<Entries>(*entries_);
        const auto found = std::find_if(changed->begin(), changed->end(),
                                        [sink](const auto& entry) { return entry->sink.get() == sink; });
        if (found == changed->end())
        {
            return false;
        }
        removed = *found;
        changed->erase(found);
        entries_ = std::move(changed);
    }
    removed->removed = true;
    // Waits for a delivery in progress, unless this call is made by that delivery's sink.
    const std::lock_guard<std::recursive_mutex> wait(deliveryMutex_);
    return true;
}

bool PacketTap::isEmpty() const
{
    return snapshot()->empty();
}

void PacketTap::deliver(const AccessUnitPtr& unit)
{
    const std::lock_guard<std::recursive_mutex> guard(deliveryMutex_);
    const std::shared_ptr<const Entries> entries = snapshot();
    for (const std::shared_ptr<Entry>& entry : *entries)
    {
        if (entry->removed || (!entry->started && !unit->keyFrame))
        {
            continue;
        }
        entry->started = true;
        entry->sink->onAccessUnit(unit);
    }
}

void PacketTap::discontinuity()
{
    const std::lock_guard<std::recursive_mutex> guard(deliveryMutex_);
    const std::shared_ptr<const Entries> entries = snapshot();
    for (const std::shared_ptr<Entry>& entry : *entries)
    {
        if (entry->removed)
        {
            continue;
        }
        entry->started = false;
        entry->sink->onDiscontinuity();
    }
}

std::shared_ptr<const PacketTap::Entries> PacketTap::snapshot() const
{
    const MutexLock guard(listMutex_);
    return entries_;
}

}  // namespace refhost
