#include "refhost/http/RequestRate.h"

#include <algorithm>
#include <chrono>

namespace refhost
{

RequestRate::RequestRate(int perSecond)
    : perSecond_(perSecond), max_(2.0 * perSecond), others_{max_, MonotonicTime::min()}
{
}

bool RequestRate::admit(const SocketAddress::Key& address, MonotonicTime now)
{
    const SocketAddress::Key network = SocketAddress::networkOf(address);
    auto found = allowances_.find(network);
    if (found == allowances_.end())
    {
        if (allowances_.size() == maxAddresses)
        {
            forgetIdle(now);
        }
        if (allowances_.size() == maxAddresses)
        {
            return take(others_, now);
        }
        found = allowances_.emplace(network, Allowance{max_, now}).first;
    }
    return take(found->second, now);
}

bool RequestRate::take(Allowance& allowance, MonotonicTime now) const
{
    refill(allowance, now);
    if (allowance.left < 1)
    {
        return false;
    }
    allowance.left -= 1;
    return true;
}

void RequestRate::refill(Allowance& allowance, MonotonicTime now) const
{
    if (allowance.at != MonotonicTime::min())
    {
        const double seconds = std::chrono::duration<double>(now - allowance.at).count();
        allowance.left = std::min(max_, allowance.left + (std::max(seconds, 0.0) * perSecond_));
    }
    allowance.at = now;
}

/// An address whose allowance is whole again is as one that was never seen.
void RequestRate::forgetIdle(MonotonicTime now)
{
    for (auto each = allowances_.begin(); each != allowances_.end();)
    {
        refill(each->second, now);
        each = each->second.left >= max_ ? allowances_.erase(each) : std::next(each);
    }
}

std::size_t RequestRate::addresses() const
{
    return allowances_.size();
}

}  // namespace refhost
