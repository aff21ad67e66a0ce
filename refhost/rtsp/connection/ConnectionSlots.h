#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <set>
#include <unordered_map>
#include <utility>

#include "refhost/base/Mutex.h"
#include "refhost/base/SocketAddress.h"
#include "refhost/base/Times.h"

namespace refhost
{

/// Decides which connections the server keeps, so that nobody can lock others out just by connecting.
///
/// A connection is established while its client is logged in or, without configured users, has a session.
/// Established ones stay. The others are provisional: when slots run out, a new connection displaces one of
/// the address that holds most of them, or an older one of its own address. Some slots are reserved for known
/// addresses, from which a connection was established before.
///
/// Bounds: `total` slots, as many addresses, `maxKnown` known addresses, `maxLeaving` displaced connections
/// that are not closed yet. Addresses are counted by SocketAddress::networkOf(): an IPv6 network counts as
/// one.
///
/// Outlives its slots. Threads: any; one lock of its own, never held while a listener is called.
class ConnectionSlots
{
public:
    static constexpr std::size_t maxKnown = 1024;
    static constexpr std::size_t maxLeaving = 64;
    /// One of this many slots is reserved for known addresses.
    static constexpr std::size_t keptPart = 8;
    /// The age from which a client may displace connections of its own address.
    static constexpr std::chrono::seconds ownAge{2};

    /// One connection's slot, held until destroyed.
    class Slot
    {
    public:
        Slot(ConnectionSlots& slots, const SocketAddress::Key& address, MonotonicTime now);
        ~Slot();
        Slot(const Slot&) = delete;
        Slot& operator=(const Slot&) = delete;

        /// Sets whether the connection is established; initially not.
        void setEstablished(bool established, MonotonicTime now);

        /// Calls `listener` once when another connection displaces this one, which must then close. On any
        /// thread; inside this call if that has happened already.
        void onDisplaced(std::function<void()> listener);

        /// Has `companion`, the slot of another connection of the same client, follow this one: it is
        /// established and displaced with it, until another joins. Requires: of the same ConnectionSlots.
        void join(const std::shared_ptr<Slot>& companion);

        /// \see ConnectionSlots::scarce()
        bool scarce() const;

    private:
        friend class ConnectionSlots;

        /// untaken -> provisional <-> established; provisional -> displaced.
        enum class State
        {
            untaken,
            provisional,
            established,
            displaced  // another connection has the slot; this one counts as leaving until closed
        };

        ConnectionSlots& slots_;
        const SocketAddress::Key address_;
        std::weak_ptr<Slot> companion_;
        MonotonicTime since_;  // provisional since then
        State state_ = State::untaken;
        std::function<void()> listener_;
        std::list<Slot*>::iterator position_;  // in the list of its address
    };

    ConnectionSlots(int total, int perAddress);

    /// Takes a slot for a connection from `address`.
    /// \returns null when the connection is refused
    std::shared_ptr<Slot> take(const SocketAddress::Key& address, MonotonicTime now);

    /// True while three quarters of the slots for unknown addresses are taken: provisional connections get
    /// less time then.
    bool scarce() const;

    /// From now on these limits hold; connections beyond them stay.
    void setLimits(int total, int perAddress);

    std::size_t count() const;

private:
    struct Address
    {
        std::size_t count = 0;
        std::list<Slot*> provisional;  // oldest first
    };
    using Addresses = std::unordered_map<SocketAddress::Key, Address, SocketAddress::KeyHash>;
    using Known = std::list<SocketAddress::Key>;

    std::size_t open(const SocketAddress::Key& address) const OV_REQUIRES(mutex_);
    Slot* displaceable(const SocketAddress::Key& address, MonotonicTime now, bool ownOnly)
        OV_REQUIRES(mutex_);
    std::function<void()> displace(Slot& slot) OV_REQUIRES(mutex_);
    void setEstablished(Slot& slot, bool established, MonotonicTime now) OV_REQUIRES(mutex_);
    void addProvisional(Slot& slot) OV_REQUIRES(mutex_);
    void removeProvisional(Slot& slot) OV_REQUIRES(mutex_);
    void remove(Slot& slot) OV_REQUIRES(mutex_);
    void remember(const SocketAddress::Key& address) OV_REQUIRES(mutex_);
    void giveBack(Slot& slot);

    mutable Mutex mutex_;
    std::size_t total_ OV_GUARDED_BY(mutex_) = 0;
    std::size_t kept_ OV_GUARDED_BY(mutex_) = 0;
    std::size_t perAddress_ OV_GUARDED_BY(mutex_) = 0;
    std::size_t count_ OV_GUARDED_BY(mutex_) = 0;
    std::size_t leaving_ OV_GUARDED_BY(mutex_) = 0;
    Addresses addresses_ OV_GUARDED_BY(mutex_);
    std::set<std::pair<std::size_t, SocketAddress::Key>> crowds_
        OV_GUARDED_BY(mutex_);           // addresses by their number of provisional slots
    Known known_ OV_GUARDED_BY(mutex_);  // latest first
    std::unordered_map<SocketAddress::Key, Known::iterator, SocketAddress::KeyHash> knownByAddress_
        OV_GUARDED_BY(mutex_);
};

}  // namespace refhost
