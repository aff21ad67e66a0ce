#include "refhost/access/LoginBrake.h"

#include <algorithm>
#include <functional>
#include <utility>

#include "refhost/base/RandomBytes.h"

namespace refhost
{
namespace
{

using Kind = LoginBrake::Admission::Kind;

std::string newSecret()
{
    std::string secret(16, '\0');
    fillRandom(secret.data(), secret.size());
    return secret;
}

bool isLoopback(const SocketAddress::Key& address)
{
    static const SocketAddress::Key v6 = SocketAddress::parse("::1")->key();
    static const SocketAddress::Key v4 = SocketAddress::parse("127.0.0.0")->key();
    constexpr std::size_t network = 13;  // bytes up to the first of the IPv4 address
    return address == v6 || std::equal(v4.begin(), v4.begin() + network, address.begin());
}

}  // namespace

LoginBrake::Wait::Wait(LoginBrake& brake) : brake_(brake) {}

LoginBrake::Wait::~Wait()
{
    const MutexLock guard(brake_.mutex_);
    --brake_.waiting_;
}

LoginBrake::LoginBrake(const AuthConfig& config, const HostClock& clock)
    : config_(config),
      clock_(clock),
      userLimits_{config.freeFailures, config.refuseAfter},
      addressLimits_{config.refuseAddressAfter > 1 ? config.refuseAddressAfter / 2 : config.freeFailures,
                     config.refuseAddressAfter},
      secret_(newSecret())
{
}

bool LoginBrake::exempts(const SocketAddress::Key& address) const
{
    return config_.exemptLoopback && isLoopback(address);
}

std::uint64_t LoginBrake::hashOf(std::string_view user) const
{
    const std::uint64_t hash = std::hash<std::string>()(secret_ + std::string(user));
    return hash == 0 ? 1 : hash;
}

void LoginBrake::forget(Failures& failures, MonotonicTime now) const
{
    const Duration memory = std::chrono::seconds(config_.failureMemory);
    const auto forgotten = std::max<Duration::rep>(0, (now - failures.since) / memory);
    if (forgotten >= failures.count)
    {
        failures.count = 0;
        failures.since = now;
        return;
    }
    failures.count -= static_cast<int>(forgotten);
    failures.since += forgotten * memory;
}

/// The least time from one attempt to the next.
Duration LoginBrake::interval(const Failures& failures, const Limits& limits) const
{
    if (failures.count < limits.free)
    {
        return Duration::zero();
    }
    constexpr int maxDoublings = 20;
    const int doublings = std::min(maxDoublings, failures.count - limits.free);
    const Duration longest = std::chrono::seconds(config_.maxDelay);
    return std::min(longest, Duration(std::chrono::seconds(std::int64_t{1} << doublings)));
}

void LoginBrake::add(Failures& failures, const Limits& limits, MonotonicTime now) const
{
    constexpr int maxCount = 1'000'000;
    forget(failures, now);
    failures.count = std::min(failures.count + 1, maxCount);
    failures.nextAt = std::max(failures.nextAt, now + interval(failures, limits));
    if (limits.refuse > 0 && failures.count >= limits.refuse)
    {
        failures.count = limits.refuse - 1;
        failures.refusedUntil = now + std::chrono::seconds(config_.refusalTime);
        failures.since = failures.refusedUntil;
    }
}

LoginBrake::Admission LoginBrake::admit(const SocketAddress::Key& address, std::string_view user,
                                        bool loggedIn)
{
    if (exempts(address))
    {
        return {};
    }
    const std::uint64_t hash = hashOf(user);
    const SocketAddress::Key network = SocketAddress::networkOf(address);
    const MonotonicTime now = clock_.now();
    const MutexLock guard(mutex_);
    const bool trusted = loggedIn || known_.find({network, hash}) != nullptr;
    return decide(users_.find({network, hash}), trusted ? nullptr : addresses_.find({network, 0}),
                  trusted ? nullptr : &everywhere_.at(hash % userBuckets), now);
}

/// \param ofAddress, ofAll  null for a user who logged in from there
LoginBrake::Admission LoginBrake::decide(Failures* ofUser, Failures* ofAddress, Failures* ofAll,
                                         MonotonicTime now)
{
    const std::array<std::pair<Failures*, const Limits*>, 2> own{
        {{ofUser, &userLimits_}, {ofAddress, &addressLimits_}}};
    Duration refused{0};
    Duration wait{0};
    for (const auto& [failures, limits] : own)
    {
        if (failures != nullptr)
        {
            forget(*failures, now);
            refused = std::max(refused, failures->refusedUntil - now);
            wait = std::max(wait, failures->nextAt - now);
        }
    }
    if (refused > Duration::zero())
    {
        return {Kind::refuse, refused, nullptr};
    }
    const bool full = waiting_ >= maxWaiting;
    if (wait > std::chrono::seconds(config_.maxDelay) || (wait > Duration::zero() && full))
    {
        return {Kind::refuse, wait, nullptr};
    }
    if (ofAll != nullptr)
    {
        forget(*ofAll, now);
    }
    if (ofAll != nullptr && ofAll->count >= userFree && !full)
    {
        wait = std::max<Duration>(
            wait, std::min<std::chrono::seconds>(userDelay, std::chrono::seconds(config_.maxDelay)));
    }
    for (const auto& [failures, limits] : own)
    {
        if (failures != nullptr)
        {
            failures->nextAt = std::max(failures->nextAt, now) + interval(*failures, *limits);
        }
    }
    if (wait == Duration::zero())
    {
        return {};
    }
    Admission admission{Kind::wait, wait, std::make_unique<Wait>(*this)};
    ++waiting_;
    return admission;
}

void LoginBrake::failed(const SocketAddress::Key& address, std::string_view user)
{
    if (exempts(address))
    {
        return;
    }
    const std::uint64_t hash = hashOf(user);
    const SocketAddress::Key network = SocketAddress::networkOf(address);
    const MonotonicTime now = clock_.now();
    const MutexLock guard(mutex_);
    add(users_.touch({network, hash}), userLimits_, now);
    add(addresses_.touch({network, 0}), addressLimits_, now);
    add(everywhere_.at(hash % userBuckets), {userFree, 0}, now);
}

void LoginBrake::succeeded(const SocketAddress::Key& address, std::string_view user)
{
    if (exempts(address))
    {
        return;
    }
    const std::uint64_t hash = hashOf(user);
    const SocketAddress::Key network = SocketAddress::networkOf(address);
    const MutexLock guard(mutex_);
    users_.erase({network, hash});
    known_.touch({network, hash});
}

std::size_t LoginBrake::failing() const
{
    const MutexLock guard(mutex_);
    return users_.size() + addresses_.size();
}

std::size_t LoginBrake::known() const
{
    const MutexLock guard(mutex_);
    return known_.size();
}

std::size_t LoginBrake::waiting() const
{
    const MutexLock guard(mutex_);
    return waiting_;
}

}  // namespace refhost
