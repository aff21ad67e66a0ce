#include "refhost/rtsp/connection/ConnectionSlots.h"

#include <utility>

namespace refhost
{

ConnectionSlots::Slot::Slot(ConnectionSlots& slots, const SocketAddress::Key& address, MonotonicTime now)
    : slots_(slots), address_(address), since_(now)
{
}

ConnectionSlots::Slot::~Slot()
{
    slots_.giveBack(*this);
}

void ConnectionSlots::Slot::setEstablished(bool established, MonotonicTime now)
{
    std::shared_ptr<Slot> companion;  // ends without the lock
    const MutexLock guard(slots_.mutex_);
    slots_.setEstablished(*this, established, now);
    companion = companion_.lock();
    if (companion != nullptr)
    {
        slots_.setEstablished(*companion, established, now);
    }
}

bool ConnectionSlots::Slot::scarce() const
{
    return slots_.scarce();
}

void ConnectionSlots::Slot::onDisplaced(std::function<void()> listener)
{
    std::shared_ptr<Slot> companion;  // ends without the lock
    {
        const MutexLock guard(slots_.mutex_);
        companion = companion_.lock();
        const bool displaced =
            state_ == State::displaced || (companion != nullptr && companion->state_ == State::displaced);
        if (!displaced)
        {
            if (companion != nullptr)
            {
                companion->listener_ = listener;
            }
            listener_ = std::move(listener);
            return;
        }
    }
    listener();
}

void ConnectionSlots::Slot::join(const std::shared_ptr<Slot>& companion)
{
    std::function<void()> listener;
    {
        const MutexLock guard(slots_.mutex_);
        companion_ = companion;
        if (companion->state_ != State::displaced)
        {
            companion->listener_ = listener_;
            slots_.setEstablished(*companion, state_ == State::established, companion->since_);
            return;
        }
        listener = listener_;
    }
    if (listener)
    {
        listener();
    }
}

ConnectionSlots::ConnectionSlots(int total, int perAddress)
{
    setLimits(total, perAddress);
}

void ConnectionSlots::setLimits(int total, int perAddress)
{
    const MutexLock guard(mutex_);
    total_ = static_cast<std::size_t>(total);
    kept_ = total_ / keptPart;
    perAddress_ = static_cast<std::size_t>(perAddress);
}

std::shared_ptr<ConnectionSlots::Slot> ConnectionSlots::take(const SocketAddress::Key& full,
                                                             MonotonicTime now)
{
    const SocketAddress::Key address = SocketAddress::networkOf(full);
    auto slot = std::make_shared<Slot>(*this, address, now);
    std::function<void()> displaced;
    {
        const MutexLock guard(mutex_);
        const auto found = addresses_.find(address);
        const bool crowded = found != addresses_.end() && found->second.count >= perAddress_;
        if (crowded || count_ >= open(address))
        {
            Slot* const other = displaceable(address, now, crowded);
            if (other == nullptr)
            {
                return nullptr;
            }
            displaced = displace(*other);
        }
        addProvisional(*slot);
        ++addresses_[address].count;
        ++count_;
    }
    if (displaced)
    {
        displaced();
    }
    return slot;
}

/// The largest number of connections at which one more from `address` is admitted.
std::size_t ConnectionSlots::open(const SocketAddress::Key& address) const
{
    return knownByAddress_.count(address) != 0 ? total_ : total_ - kept_;
}

/// The slot that a connection from `address` may displace; null for none.
ConnectionSlots::Slot* ConnectionSlots::displaceable(const SocketAddress::Key& address, MonotonicTime now,
                                                     bool ownOnly)
{
    if (leaving_ >= maxLeaving)
    {
        return nullptr;
    }
    const auto own = addresses_.find(address);
    const std::size_t ownCount = own == addresses_.end() ? 0 : own->second.provisional.size();
    if (!ownOnly && !crowds_.empty() && crowds_.rbegin()->first > ownCount + 1)
    {
        return addresses_[crowds_.rbegin()->second].provisional.front();
    }
    if (ownCount != 0 && now - own->second.provisional.front()->since_ >= ownAge)
    {
        return own->second.provisional.front();
    }
    return nullptr;
}

std::function<void()> ConnectionSlots::displace(Slot& slot)
{
    remove(slot);
    slot.state_ = Slot::State::displaced;
    ++leaving_;
    return std::move(slot.listener_);
}

void ConnectionSlots::setEstablished(Slot& slot, bool established, MonotonicTime now)
{
    if (established && slot.state_ == Slot::State::provisional)
    {
        removeProvisional(slot);
        remember(slot.address_);
        slot.state_ = Slot::State::established;
    }
    else if (!established && slot.state_ == Slot::State::established)
    {
        slot.since_ = now;
        addProvisional(slot);
    }
}

void ConnectionSlots::addProvisional(Slot& slot)
{
    std::list<Slot*>& list = addresses_[slot.address_].provisional;
    crowds_.erase({list.size(), slot.address_});
    slot.position_ = list.insert(list.end(), &slot);
    slot.state_ = Slot::State::provisional;
    crowds_.insert({list.size(), slot.address_});
}

void ConnectionSlots::removeProvisional(Slot& slot)
{
    std::list<Slot*>& list = addresses_[slot.address_].provisional;
    crowds_.erase({list.size(), slot.address_});
    list.erase(slot.position_);
    if (!list.empty())
    {
        crowds_.insert({list.size(), slot.address_});
    }
}

void ConnectionSlots::remove(Slot& slot)
{
    if (slot.state_ == Slot::State::provisional)
    {
        removeProvisional(slot);
    }
    --count_;
    const auto found = addresses_.find(slot.address_);
    if (--found->second.count == 0)
    {
        addresses_.erase(found);
    }
}

void ConnectionSlots::remember(const SocketAddress::Key& address)
{
    const auto found = knownByAddress_.find(address);
    if (found != knownByAddress_.end())
    {
        known_.splice(known_.begin(), known_, found->second);
        return;
    }
    if (known_.size() >= maxKnown)
    {
        knownByAddress_.erase(known_.back());
        known_.pop_back();
    }
    known_.push_front(address);
    knownByAddress_.emplace(address, known_.begin());
}

void ConnectionSlots::giveBack(Slot& slot)
{
    const MutexLock guard(mutex_);
    if (slot.state_ == Slot::State::displaced)
    {
        --leaving_;
    }
    else if (slot.state_ != Slot::State::untaken)
    {
        remove(slot);
    }
}

bool ConnectionSlots::scarce() const
{
    const MutexLock guard(mutex_);
    return 4 * count_ >= 3 * (total_ - kept_);
}

std::size_t ConnectionSlots::count() const
{
    const MutexLock guard(mutex_);
    return count_;
}

}  // namespace refhost
