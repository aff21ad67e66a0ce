#include "refhost/rtp/multicast/MulticastPool.h"

#include <algorithm>
#include <cstdlib>

namespace refhost
{
namespace
{

constexpr int portLimit = 65536;

}  // namespace

MulticastPool::MulticastPool(Settings settings) : settings_(std::move(settings)), nextPort_(settings_.port)
{
    for (const auto& [stream, group] : settings_.fixed)
    {
        slots_.push_back({group, stream, {}});
    }
}

MulticastPool::Lease MulticastPool::take(Stream stream)
{
    const MutexLock guard(mutex_);
    Slot* const slot = slotFor(stream);
    if (slot == nullptr)
    {
        return nullptr;
    }
    Lease lease = slot->lease.lock();
    if (!lease)
    {
        lease = std::make_shared<const MulticastGroup>(slot->group);
        slot->lease = lease;
    }
    return lease;
}

std::optional<MulticastGroup> MulticastPool::preview(Stream stream)
{
    const MutexLock guard(mutex_);
    const Slot* const slot = slotFor(stream);
    return slot == nullptr ? std::nullopt : std::optional<MulticastGroup>(slot->group);
}

std::size_t MulticastPool::taken() const
{
    const MutexLock guard(mutex_);
    return static_cast<std::size_t>(
        std::count_if(slots_.begin(), slots_.end(), [](const Slot& slot) { return !slot.lease.expired(); }));
}

MulticastPool::Slot* MulticastPool::slotFor(Stream stream)
{
    const auto own =
        std::find_if(slots_.begin(), slots_.end(), [&](const Slot& slot) { return slot.stream == stream; });
    if (own != slots_.end())
    {
        return &*own;
    }
    if (Slot* const fresh = grow(stream))
    {
        return fresh;
    }
    const auto free = std::find_if(
        slots_.begin(), slots_.end(),
        [this](const Slot& slot) { return slot.lease.expired() && settings_.fixed.count(slot.stream) == 0; });
    if (free == slots_.end())
    {
        return nullptr;
    }
    free->stream = stream;
    return &*free;
}

/// Adds a slot with the next address and the next ports. Ports differ too, because a receiver that binds a
/// port without the group's address would get two streams. \returns null when none is left
MulticastPool::Slot* MulticastPool::grow(Stream stream)
{
    const auto fixedHas = [this](const auto& quality)
    {
        return std::any_of(settings_.fixed.begin(), settings_.fixed.end(),
                           [&](const auto& entry) { return quality(entry.second); });
    };
    while (next_ < settings_.range.count &&
           fixedHas([address = settings_.range.first + next_](const MulticastGroup& group)
                    { return group.address == address; }))
    {
        ++next_;
    }
    while (fixedHas([port = nextPort_](const MulticastGroup& group)
                    { return std::abs(group.port - port) < MulticastGroup::ports; }))
    {
        nextPort_ += 2;
    }
    if (next_ >= settings_.range.count || nextPort_ + MulticastGroup::ports > portLimit)
    {
        return nullptr;
    }
    slots_.push_back({{settings_.range.first + next_, nextPort_}, stream, {}});
    ++next_;
    nextPort_ += MulticastGroup::ports;
    return &slots_.back();
}

}  // namespace refhost
