#pragma once

#include <cstddef>
#include <unordered_map>

#include "refhost/base/SocketAddress.h"
#include "refhost/base/Times.h"

namespace refhost
{

/// Limits the requests a second of each address, as SocketAddress::networkOf() gives it. Twice as many may come at once.
///
/// Holds at most `maxAddresses` of them; where there are more, those that are not held share one allowance. Threads: one
/// at a time.
class RequestRate
{
public:
    static constexpr std::size_t maxAddresses = 1024;

    explicit RequestRate(int perSecond);

    /// Counts one request.
    /// \returns false when it is one too many
    bool admit(const SocketAddress::Key& address, MonotonicTime now);

    std::size_t addresses() const;

private:
    struct Allowance
    {
        double left;
        MonotonicTime at;
    };

    bool take(Allowance& allowance, MonotonicTime now) const;
    void refill(Allowance& allowance, MonotonicTime now) const;
    void forgetIdle(MonotonicTime now);

    const double perSecond_;
    const double max_;
    std::unordered_map<SocketAddress::Key, Allowance, SocketAddress::KeyHash> allowances_;
    Allowance others_;
};

}  // namespace refhost
