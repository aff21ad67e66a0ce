#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "refhost/access/RecentTable.h"
#include "refhost/base/HostClock.h"
#include "refhost/base/Mutex.h"
#include "refhost/base/SocketAddress.h"
#include "refhost/config/Config.h"

namespace refhost
{

/// Slows down who guesses passwords. Asked before the credentials of a request are compared.
///
/// Wrong passwords are counted
/// - for each user from each address: after `free-failures` the next attempts wait for 1, 2, 4 … seconds, up
///   to `max-delay`; after `refuse-after` none is looked at for `refusal-time`;
/// - for each address, whatever users it names: the same, with `refuse-address-after` and half of that;
/// - for each user from all addresses: past `userFree`, attempts from addresses that he did not log in from
///   wait for `userDelay` and are never refused. So nobody locks a user out from another address.
///
/// An address from which a user logged in is not held up for what others do there. One failure is forgotten
/// each `failure-memory`; after a refusal the first one that is not forgotten leads to the next. An IPv6 network of 64 bits counts as one address. Users that do not exist are
/// treated as those that do.
///
/// Attempts of one address that would have to wait longer than `max-delay`, because others wait, are
/// refused; so are those beyond `maxWaiting` that wait in all.
///
/// Bounds: `maxFailing` addresses and as many users at addresses, `maxKnown` users at addresses that logged
/// in, the newest each; `userBuckets` counters for users, which share them by a secret hash. Outlives its
/// waits. Threads: any; one lock of its own.
class LoginBrake
{
public:
    static constexpr std::size_t maxFailing = 4096;
    static constexpr std::size_t maxKnown = 1024;
    static constexpr std::size_t userBuckets = 1024;
    static constexpr std::size_t maxWaiting = 256;
    static constexpr int userFree = 20;
    static constexpr std::chrono::seconds userDelay{2};

    /// One attempt that waits; counted until it is destroyed. Made by admit() alone.
    class Wait
    {
    public:
        explicit Wait(LoginBrake& brake);
        ~Wait();
        Wait(const Wait&) = delete;
        Wait& operator=(const Wait&) = delete;

    private:
        LoginBrake& brake_;
    };

    struct Admission
    {
        enum class Kind
        {
            proceed,
            wait,   ///< compare the credentials after `span`
            refuse  ///< do not; the client may come back after `span`
        };

        Kind kind = Kind::proceed;
        Duration span{0};
        std::unique_ptr<Wait> wait;  ///< not null for `wait`: keep it until then
    };

    /// \param clock  outlives the brake
    LoginBrake(const AuthConfig& config, const HostClock& clock);

    /// Asks for one attempt of `user` from `address`.
    /// \param loggedIn  whether the same connection logged in as this user
    Admission admit(const SocketAddress::Key& address, std::string_view user, bool loggedIn);
    /// The password was wrong, or there is no such user.
    void failed(const SocketAddress::Key& address, std::string_view user);
    /// The password was right.
    void succeeded(const SocketAddress::Key& address, std::string_view user);

    /// Addresses, and users at addresses, whose failures are remembered.
    std::size_t failing() const;
    /// Users at addresses that are remembered for having logged in.
    std::size_t known() const;
    std::size_t waiting() const;

private:
    struct Failures
    {
        int count = 0;
        MonotonicTime since;   // one is forgotten each memory from then on; not before a refusal ends
        MonotonicTime nextAt;  // of the next attempt
        MonotonicTime refusedUntil;
    };
    struct Known
    {
    };
    struct Limits
    {
        int free;
        int refuse;  // 0: never
    };
    using Key = RecentTable<Failures>::Key;

    bool exempts(const SocketAddress::Key& address) const;
    std::uint64_t hashOf(std::string_view user) const;
    void forget(Failures& failures, MonotonicTime now) const;
    Duration interval(const Failures& failures, const Limits& limits) const;
    void add(Failures& failures, const Limits& limits, MonotonicTime now) const;
    Admission decide(Failures* ofUser, Failures* ofAddress, Failures* ofAll, MonotonicTime now)
        OV_REQUIRES(mutex_);

    const AuthConfig config_;
    const HostClock& clock_;
    const Limits userLimits_;
    const Limits addressLimits_;
    const std::string secret_;  // of hashOf()
    mutable Mutex mutex_;
    RecentTable<Failures> users_ OV_GUARDED_BY(mutex_){maxFailing};      // users at addresses
    RecentTable<Failures> addresses_ OV_GUARDED_BY(mutex_){maxFailing};  // all users of an address
    RecentTable<Known> known_ OV_GUARDED_BY(mutex_){maxKnown};
    std::array<Failures, userBuckets> everywhere_ OV_GUARDED_BY(mutex_);  // users at all addresses
    std::size_t waiting_ OV_GUARDED_BY(mutex_) = 0;
};

}  // namespace refhost
